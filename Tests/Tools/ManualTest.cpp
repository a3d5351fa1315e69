#include "CommandLine/CommandTable.h"
#include "Errors/ExitStatus.h"
#include "Support/Testing.h"

namespace tdw::cli {

namespace {

/// Whether the page holds a passage; the page itself would bury what is missing.
bool documents(const std::string& passage)
{
    static const std::string manual = contentsOf(TIDEWELL_SOURCE_DIR "/Tools/tidewell/tidewell.1");
    return manual.find(passage) != std::string::npos;
}

/// As the page's source writes a dash that is not a hyphen.
std::string withEscapedDashes(std::string_view text)
{
    std::string result;
    for (const char character : text)
        result += character == '-' ? "\\-" : std::string(1, character);
    return result;
}

TEST(Manual, DocumentsEveryCommandWithItsArguments)
{
    for (const Command& command : commandTable()) {
        std::string heading = "\n.TP\n.B " + std::string(command.name);
        for (const Word& word : command.words)
            heading += word.isOptional ? " [" + std::string(word.name) + "]"
                                       : " " + std::string(word.name);
        EXPECT_TRUE(documents(heading + "\n")) << heading;
    }
}

TEST(Manual, DocumentsEveryOption)
{
    for (const Option& option : optionTable()) {
        std::string heading = "\n.TP\n.B ";
        if (!option.shortName.empty())
            heading += withEscapedDashes(option.shortName) + ", ";
        heading += withEscapedDashes(option.name);
        if (!option.valueName.empty())
            heading += " " + std::string(option.valueName);
        EXPECT_TRUE(documents(heading + "\n")) << heading;
    }
}

TEST(Manual, DocumentsEveryExitStatusInTheSameWords)
{
    for (const auto& [status, meaning] : exitStatusMeanings())
        EXPECT_TRUE(documents("\n.TP\n.B " + std::to_string(static_cast<int>(status)) + "\n"
            + std::string(meaning) + "\n"))
            << meaning;
}

} // namespace

} // namespace tdw::cli
