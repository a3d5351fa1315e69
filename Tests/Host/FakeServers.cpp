#include "Host/FakeServers.h"

#include "ChildRole.h"
#include "Platform/System/Process.h"
#include "Platform/Values/PropertyList.h"

#include <sys/file.h>

using namespace tdw;

namespace {

void print(int descriptor, std::string_view text)
{
    (void)writeToDescriptor(descriptor, bytesOf(text));
}

/// Leaves a descendant behind, which keeps both pipes open, and holds a lock until its end.
void leaveGrandchildBehind(const std::string& lockFile, const std::string& group)
{
    const int lock = open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    flock(lock, LOCK_EX);
    LaunchOptions options;
    options.executable = "/proc/self/exe";
    options.programName = "tdw_child";
    options.arguments = { group == "own group" ? "wait for the reader" : "wait for ever" };
    options.standardInput = lock; // an open lock file is what carries the lock into the grandchild
    options.ownProcessGroup = group == "own group";
    // Its parent does not wait for it either.
    static auto grandchild = Process::launch(options);
}

int runAsServer(int count, char** words)
{
    const std::string_view job = words[1];
    const std::vector<std::string> arguments(words + 2, words + count);
    int status = 0;
    if (job == "say") {
        print(STDOUT_FILENO, arguments[0]);
        print(STDERR_FILENO, arguments[1]);
        status = std::stoi(arguments[2]);
    } else if (job == "say bytes") {
        print(STDERR_FILENO, std::string_view("text \0 more \xe2\x80", 14));
        status = 3;
    } else if (job == "envelope") {
        print(STDOUT_FILENO, xmlOf(envelopeOf(std::stoul(arguments[0]))));
        status = std::stoi(arguments[1]);
    } else if (job == "flood") {
        print(STDERR_FILENO, std::string(kFlood, '\n') + arguments[0]);
        if (arguments[0].empty())
            print(STDOUT_FILENO, xmlOf(envelopeOf(kFlood)));
        status = 1;
    } else if (job == "count") {
        std::string lines;
        for (int i = 0; i < std::stoi(arguments[0]); ++i)
            lines += std::to_string(i) + '\n';
        print(STDOUT_FILENO, lines + "last");
    } else if (job == "grandchild") {
        leaveGrandchildBehind(arguments[0], arguments[1]);
        print(STDOUT_FILENO, arguments[2]);
    } else if (job == "wait for the reader") {
        pollfd entry { STDOUT_FILENO, 0, 0 };
        (void)poll(&entry, 1, -1);
    } else if (job == "wait for ever") {
        pause();
    } else if (job == "live on") {
        print(STDOUT_FILENO, xmlOf(envelopeOf(1)));
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
        (void)open(arguments[0].c_str(), O_RDONLY | O_CLOEXEC); // until the test opens it too
        status = 9;
    } else if (job == "close") {
        close(STDOUT_FILENO);
        print(STDERR_FILENO, "closed");
        pause();
    } else if (job == "hang") {
        print(STDOUT_FILENO, "ready\n");
        pause();
    } else if (job == "die") {
        raise(SIGKILL);
    }
    _exit(status);
}

const ChildRole kServer(
    { "say", "say bytes", "envelope", "flood", "count", "grandchild", "wait for the reader",
        "wait for ever", "live on", "close", "hang", "die" },
    runAsServer);

} // namespace

Value envelopeOf(std::size_t payloadBytes)
{
    return Dictionary { { "response", std::string(payloadBytes, 'x') } };
}

std::string xmlOf(const Value& envelope)
{
    return textOf(*encodeXmlPropertyList(envelope));
}
