#include "CommandLine/CommandTable.h"
#include "EndToEnd/SimulatorProcess.h"
#include "Errors/ExitStatus.h"
#include "Interfaces/TDWServer.h"
#include "Support/TDWErrorKinds.h"
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

TEST(Manual, DocumentsEveryCommandOptionAndExitStatus)
{
    std::vector<std::string> headings;
    for (const Command& command : commandTable()) {
        headings.emplace_back(command.name);
        for (const Word& word : command.words)
            headings.back() += word.isOptional ? " [" + std::string(word.name) + "]"
                                               : " " + std::string(word.name);
    }
    for (const Option& option : optionTable()) {
        headings.push_back(
            option.shortName.empty() ? "" : withEscapedDashes(option.shortName) + ", ");
        headings.back() += withEscapedDashes(option.name);
        if (!option.valueName.empty())
            headings.back() += " " + std::string(option.valueName);
    }
    for (const auto& [status, meaning] : exitStatusMeanings())
        headings.push_back(std::to_string(static_cast<int>(status)) + "\n" + std::string(meaning));
    for (const std::string& heading : headings)
        EXPECT_TRUE(documents("\n.TP\n.B " + heading + "\n")) << heading;
}

TEST(Manual, DocumentsEveryServerWithItsBound)
{
    const std::string page = contentsOf(TIDEWELL_SOURCE_DIR "/Tools/tdwserver/tdwserver.8");
    for (const TDWServerDescription& server : TDWServers()) {
        const auto start = page.find("\n.TP\n.B " + std::string(server.name)
            + (server.kind == TDWServerKind::Stream ? "\n" : ""));
        EXPECT_EQ(start == std::string::npos, server.kind == TDWServerKind::Reserved)
            << server.name;
        if (server.kind != TDWServerKind::Request)
            continue;
        const std::string entry = page.substr(start, page.find("\n.TP\n", start + 1) - start);
        const std::string bound = "Bound: " + std::to_string(server.timeout.count()) + " seconds.";
        EXPECT_NE(entry.find(bound), std::string::npos) << entry;
    }
    for (const int status : { kServerWithoutNameStatus, kUnknownServerNameStatus })
        EXPECT_NE(page.find("\n.TP\n.B " + std::to_string(status) + "\n"), std::string::npos);
}

TEST(Manual, HasPagesThatMandocFindsNothingWrongWith)
{
    if (!std::filesystem::exists("/usr/bin/mandoc"))
        GTEST_SKIP() << "there is no mandoc";
    for (const char* page :
        { "tidewell/tidewell.1", "tidewell/tidewell-json.5", "tidewell-service/tidewell-service.8",
            "tdwserver/tdwserver.8", "tdwsimulator/tdwsimulator.1", "tdwsimulator/tdwsimulator.5" })
        EXPECT_EQ(runCommandBounded({ "mandoc", "-T", "lint", "-W", "warning",
                                        TIDEWELL_SOURCE_DIR "/Tools/" + std::string(page) })
                      .output,
            "");
}

} // namespace

} // namespace tdw::cli
