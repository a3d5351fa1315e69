#pragma once

#include <string_view>
#include <vector>

/// What a test executable does when a test starts it as a child process: `/proc/self/exe` with the
/// role's name as its first argument.
///
///     const ChildRole kHang({ "hang" }, [](int, char**) { return pause(); });
class ChildRole {
public:
    /// Takes the arguments of `main`; returns the child's exit status.
    using Body = int (*)(int count, char** arguments);

    /// @param names no other role of the same executable has them; they do not begin with a dash
    ChildRole(std::vector<std::string_view> names, Body body);
    ~ChildRole() = default;
    ChildRole(const ChildRole&) = delete;
    ChildRole& operator=(const ChildRole&) = delete;

    /// The body of the role that the first argument names, or null.
    static Body named(std::string_view name);

private:
    const std::vector<std::string_view> m_names;
    const Body m_body;
    const ChildRole* const m_next;
    static const ChildRole* s_first;
};
