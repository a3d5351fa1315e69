#include "ChildRole.h"

#include <gtest/gtest.h>

#include <cstdlib>

int main(int count, char** arguments)
{
    if (count > 1 && arguments[1][0] != '-') {
        const auto role = ChildRole::all().find(arguments[1]);
        return role != ChildRole::all().end() ? role->second(count, arguments) : EXIT_FAILURE;
    }
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
