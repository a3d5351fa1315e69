#include "Platform/System/Bundle.h"

#include "Support/Testing.h"

using namespace tdw;

TEST(Bundle, NamesNothingOutsideItsDirectory)
{
    const Bundle bundle("/x");
    using namespace std::string_view_literals;
    for (const auto name : { ""sv, "."sv, ".."sv, "a/b"sv, "/bin/sh"sv, "../sh"sv, "a\0b"sv })
        EXPECT_EQ(bundle.pathForAuxiliaryExecutable(name), std::nullopt) << name;
    EXPECT_EQ(bundle.pathForAuxiliaryExecutable("tdw_list"), "/x/tdw_list");
    EXPECT_EQ(bundle.pathForAuxiliaryExecutable("..."), "/x/...");
    EXPECT_EQ(Bundle("").pathForAuxiliaryExecutable("tdw_list"), std::nullopt);
}
