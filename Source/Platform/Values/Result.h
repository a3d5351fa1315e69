#pragma once

#include "Platform/Values/Error.h"

#include <cassert>
#include <optional>
#include <utility>
#include <variant>

namespace tdw {

/// A value, or the error that kept it from being made. Shaped like `std::expected`, to be replaced
/// by it one day.
template <typename T>
class [[nodiscard]] Result {
public:
    // Implicit, so that functions return the one or the other as they have it.
    // NOLINTBEGIN(google-explicit-constructor)
    Result(T value)
        : m_content(std::in_place_index<0>, std::move(value))
    {
    }
    Result(Error error)
        : m_content(std::in_place_index<1>, std::move(error))
    {
    }
    // NOLINTEND(google-explicit-constructor)

    bool hasValue() const { return m_content.index() == 0; }
    explicit operator bool() const { return hasValue(); }

    T& operator*() &
    {
        assert(hasValue());
        return *std::get_if<0>(&m_content);
    }
    const T& operator*() const&
    {
        assert(hasValue());
        return *std::get_if<0>(&m_content);
    }
    T&& operator*() &&
    {
        assert(hasValue());
        return std::move(*std::get_if<0>(&m_content));
    }
    T* operator->() { return &**this; }
    const T* operator->() const { return &**this; }

    Error& error()
    {
        assert(!hasValue());
        return *std::get_if<1>(&m_content);
    }
    const Error& error() const
    {
        assert(!hasValue());
        return *std::get_if<1>(&m_content);
    }

private:
    std::variant<T, Error> m_content;
};

/// Success, or an error. `Result<void> {}` is success.
template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    // NOLINTNEXTLINE(google-explicit-constructor): functions return an error as they have it
    Result(Error error)
        : m_error(std::move(error))
    {
    }

    bool hasValue() const { return !m_error; }
    explicit operator bool() const { return hasValue(); }
    void operator*() const { assert(hasValue()); }

    Error& error()
    {
        assert(!hasValue());
        return *m_error;
    }
    const Error& error() const
    {
        assert(!hasValue());
        return *m_error;
    }

private:
    std::optional<Error> m_error;
};

/// The value of a `Result`, or a return from the enclosing function with its error.
#define TDW_TRY(expression)                                                                        \
    __extension__({                                                                                \
        auto tdwResult = (expression);                                                             \
        if (!tdwResult)                                                                            \
            return std::move(tdwResult.error());                                                   \
        *std::move(tdwResult);                                                                     \
    })

} // namespace tdw
