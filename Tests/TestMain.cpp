#include "ChildRole.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>

constinit const ChildRole* ChildRole::s_first = nullptr;

ChildRole::ChildRole(std::string_view name, Body body)
    : m_name(name)
    , m_body(body)
    , m_next(std::exchange(s_first, this))
{
}

ChildRole::Body ChildRole::named(std::string_view name)
{
    for (const ChildRole* role = s_first; role; role = role->m_next) {
        if (role->m_name == name)
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
