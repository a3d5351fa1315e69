#include "Commands/Commands.h"
#include "Doctor/DeviceLibraries.h"
#include "Doctor/Doctor.h"
#include "Doctor/Pseudonyms.h"
#include "Doctor/TarArchive.h"
#include "Errors/CommandLineError.h"
#include "Host/RequestRunner.h"
#include "Interfaces/TidewellVersion.h"
#include "Platform/Values/Utf8.h"
#include "Terminal/AtomicFileWriter.h"
#include "Text/Json.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <fstream>
#include <string>

namespace tdw::cli {

namespace {

constexpr auto kJournalBound = std::chrono::seconds(10);
constexpr std::size_t kLongestJournal = std::size_t { 256 } * 1024;

Result<std::string> destinationOf(const Arguments& arguments)
{
    const std::string* file = arguments.valueOf("--output");
    if (!file)
        return commandLineError({ .status = ExitStatus::Usage,
            .reason = "Give a file with -o FILE; try 'tidewell report --help'" });
    if (*file != "-")
        TDW_TRY(checkDestination(*file, arguments.has("--force") ? Overwrite::Yes : Overwrite::No));
    return *file;
}

/// What the service wrote in the last hour, or why that cannot be had.
std::string journalText()
{
    constexpr const char* kProgram = "/usr/bin/journalctl";
    if (::access(kProgram, X_OK) != 0)
        return "There is no journal here: journalctl is not installed.\n";
    ServerRunOptions options;
    options.executable = kProgram;
    options.serverName = "journalctl";
    options.arguments = { "--user", "--no-pager", "--no-hostname", "--quiet", "--since=-1h",
        "--output=short-precise", "--lines=2000", "SUBSYSTEM=org.tidewell.Tidewell", "+",
        "_SYSTEMD_USER_UNIT=tidewell-service.service" };
    options.timeout = kJournalBound;
    const auto outcome = runServer(std::move(options));
    if (!outcome)
        return "The journal cannot be read: " + outcome.error().failureReason() + "\n";
    if (outcome->timedOut)
        return "The journal cannot be read: journalctl did not end in time.\n";
    const Data& bytes = outcome->output.empty() ? outcome->standardError : outcome->output;
    std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (text.empty())
        return "The service wrote nothing into the journal in the last hour.\n";
    // The end is what matters.
    if (text.size() > kLongestJournal)
        text.erase(0, text.find('\n', text.size() - kLongestJournal) + 1);
    return withInvalidUtf8Replaced(text);
}

std::string versionsText()
{
    std::string text = "tidewell " + std::string(TidewellVersionString) + "\n";
    utsname system {};
    if (::uname(&system) == 0)
        text += std::string(system.sysname) + " " + system.release + " " + system.machine + "\n";
    std::ifstream release("/etc/os-release");
    for (std::string line; std::getline(release, line);) {
        if (line.starts_with("PRETTY_NAME="))
            text += line + "\n";
    }
    const auto libraries = loadedDeviceLibraries();
    return text + (libraries ? libraries->text : libraries.error().failureReason()) + "\n";
}

/// The steps of one request for information.
std::string traceOf(const CommandContext& context, const Examined& examined, Pseudonyms& pseudonyms)
{
    if (!context.trace)
        return "No trace could be collected.\n";
    if (examined.devices.empty())
        return "There is no device to ask.\n";
    const auto start = TraceEvent::Clock::now();
    std::unique_ptr<DeviceRequests> direct;
    if (!examined.isServiceUsable)
        direct = std::make_unique<DeviceRequests>(
            DeviceRequests::Transport::Direct, *EventLoop::create());
    const auto info = (direct ? *direct : context.requests)
                          .ask(DeviceInfoQuery { .udid = examined.devices.front(),
                              .includesCompanionIdentifiers = true,
                              .mayPair = false });
    std::string text;
    for (TraceEvent step : context.trace->steps()) {
        if (step.start < start)
            continue;
        // Before it is shortened, which would hide that it is one.
        step.subject = pseudonyms.replaced(step.subject);
        text += traceLine(step, start);
    }
    return text
        + (info ? "It was answered.\n" : "It failed: " + info.error().failureReason() + "\n");
}

std::vector<ArchivedFile> gather(const CommandContext& context, const Examined& examined)
{
    Pseudonyms pseudonyms;
    pseudonyms.addSurroundings();
    for (const Value& answer : examined.answers)
        pseudonyms.addAnswer(answer);
    // Before they are written in a form in which a name looks otherwise.
    Findings findings = examined.findings;
    for (Finding& finding : findings) {
        for (std::string* text : { &finding.text, &finding.remedy, &finding.device })
            *text = pseudonyms.replaced(*text);
    }
    return {
        { "doctor.txt", findingsText(findings, ColourMode::Off) },
        { "doctor.json", jsonLine(pseudonyms.replacedIn(findingsAnswer(examined.findings))) },
        { "versions.txt", pseudonyms.replaced(versionsText()) },
        { "journal.txt", pseudonyms.replaced(journalText()) },
        { "trace.txt", pseudonyms.replaced(traceOf(context, examined, pseudonyms)) },
    };
}

/// All that the files hold, safe to show.
std::string preview(const std::vector<ArchivedFile>& files)
{
    std::string text;
    for (const ArchivedFile& file : files)
        text += "-- " + file.name + "\n" + file.text + "\n";
    std::string safe;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin);
        safe += withControlCharactersEscaped(text.substr(begin, end - begin)) + "\n";
        begin = end == std::string::npos ? text.size() : end + 1;
    }
    return safe;
}

} // namespace

Result<void> reportCommand(const CommandContext& context)
{
    const std::string destination = TDW_TRY(destinationOf(context.arguments));
    const auto examined = TDW_TRY(examine(context.requests, std::nullopt, context.trace));
    const auto files = gather(context, examined);
    const Data archive = tarArchive(files, std::chrono::system_clock::now());
    if (destination == "-") {
        context.console.say(preview(files));
        return context.console.print(
            { reinterpret_cast<const char*>(archive.data()), archive.size() });
    }
    TDW_TRY(context.console.print(preview(files)));
    TDW_TRY(writeFileAtomically(
        destination, archive, context.arguments.has("--force") ? Overwrite::Yes : Overwrite::No));
    return context.console.print("This is in \"" + withControlCharactersEscaped(destination)
        + "\" now, to be attached where you ask for help.\n");
}

} // namespace tdw::cli
