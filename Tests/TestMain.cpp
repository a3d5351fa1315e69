#include "ChildRole.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

constinit const ChildRole* ChildRole::s_first = nullptr;

ChildRole::ChildRole(std::vector<std::string_view> names, Body body)
    : m_names(std::move(names))
    , m_body(body)
    , m_next(std::exchange(s_first, this))
{
}

ChildRole::Body ChildRole::named(std::string_view name)
{
    for (const ChildRole* role = s_first; role; role = role->m_next) {
        if (std::ranges::count(role->m_names, name) != 0)
            return role->m_body;
    }
    return nullptr;
}

int main(int count, char** arguments)
{
    if (count > 1 && arguments[1][0] != '-') {
        const auto body = ChildRole::named(arguments[1]);
        return body ? body(count, arguments) : EXIT_FAILURE;
    }
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
