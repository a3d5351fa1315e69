#include "EndToEnd/DaemonTest.h"
#include "EndToEnd/Household.h"
#include "Platform/System/LocalSocket.h"
#include "Platform/Values/PropertyList.h"
#include "Support/Testing.h"

#include <sys/stat.h>

#include <cstring>

using namespace tdw;

// The simulator's own multiplexer against the daemon whose manners it has: the same messages to
// both, and the same answers from both.

namespace {

using Words = std::array<std::uint32_t, 4>; ///< length, version, message, tag

constexpr std::uint32_t kPropertyList = 8;
constexpr std::uint32_t kQuestion = 1;
constexpr std::uint32_t kLastQuestion = 99;

struct MuxMessage {
    Data payload {};
    std::uint32_t version = 1;
    std::uint32_t type = kPropertyList;
    std::optional<std::uint32_t> length {}; ///< instead of the true one
    int awaited = 0; ///< answers that must have come before the next message goes out

    Data encoded(std::uint32_t tag) const
    {
        const Words words { length.value_or(static_cast<std::uint32_t>(16 + payload.size())),
            version, type, tag };
        Data data(sizeof words + payload.size());
        std::memcpy(data.data(), words.data(), sizeof words);
        std::ranges::copy(payload, data.begin() + sizeof words);
        return data;
    }
};

Data dataOf(std::string_view text)
{
    const auto bytes = bytesOf(text);
    return { bytes.begin(), bytes.end() };
}

Data words(std::initializer_list<std::uint32_t> numbers)
{
    Data data(4 * numbers.size());
    std::memcpy(data.data(), std::data(numbers), data.size());
    return data;
}

MuxMessage containing(const Dictionary& content)
{
    return { *encodeXmlPropertyList(content) };
}

MuxMessage asking(std::string_view type, Dictionary more = {})
{
    more.set("MessageType", type);
    more.set("ProgName", "comparison");
    more.set("ClientVersionString", "1");
    more.set("kLibUSBMuxVersion", 3);
    return containing(more);
}

/// A message whose answers are to come before anything else is sent: the daemon drops what it has
/// not sent when another message finds it in the wrong state.
MuxMessage answered(MuxMessage message, int answers)
{
    message.awaited = answers;
    return message;
}

bool readAll(int socket, void* bytes, std::size_t size)
{
    auto* next = static_cast<char*>(bytes);
    while (size > 0) {
        pollfd entry { socket, POLLIN, 0 };
        const ssize_t count = poll(&entry, 1, 10'000) == 1 ? recv(socket, next, size, 0) : 0;
        if (count <= 0)
            return false;
        next += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

/// What the daemon's listeners are depends on who else listens.
bool isOfSimulator(const Value& listener)
{
    const auto* name = listener.stringAt("ProgName");
    return name != nullptr && *name == "tdwsimulator";
}

std::string described(const Words& header, const Data& payload)
{
    std::string text = "tag " + std::to_string(header[3]) + ", version " + std::to_string(header[1])
        + ", message " + std::to_string(header[2]) + ": ";
    const auto content = decodePropertyList(payload);
    if (!content) {
        for (const std::byte byte : payload)
            text += std::to_string(std::to_integer<int>(byte)) + " ";
        return text;
    }
    Value value = *content;
    if (const Array* listeners = value.arrayAt("ListenerList")) {
        Array others;
        for (Value listener : *listeners) {
            Dictionary entry = *listener.asDictionary();
            // Counts the clients since the daemon's start.
            entry.remove("ID String");
            if (!isOfSimulator(listener))
                others.emplace_back(std::move(entry));
        }
        value = Dictionary { { "ListenerList", std::move(others) } };
    }
    return text + value.debugDescription();
}

/// One connection to a multiplexer.
struct MuxClient {
    explicit MuxClient(const std::filesystem::path& socket)
        : connection(*connectToLocalSocket(socket))
    {
    }

    void say(const MuxMessage& message, std::uint32_t tag) const
    {
        const Data bytes = message.encoded(tag);
        (void)send(connection.descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    /// The next answer, "the end", or nothing where it is the last question's.
    std::string hear() const
    {
        Words header {};
        if (!readAll(connection.descriptor(), header.data(), sizeof header))
            return "the end\n";
        Data payload(header[0] - sizeof header);
        if (!readAll(connection.descriptor(), payload.data(), payload.size()))
            return "the end\n";
        return header[3] == kLastQuestion ? "" : described(header, payload) + "\n";
    }

    const FileHandle connection;
};

/// Sends messages to a multiplexer on one connection, and a last one that is always answered;
/// returns all answers, and whether the connection was closed before the last one's.
std::string conversation(
    const std::filesystem::path& socket, const std::vector<MuxMessage>& messages)
{
    const MuxClient client(socket);
    std::uint32_t tag = kQuestion;
    std::string text;
    for (const MuxMessage& message : messages) {
        client.say(message, tag++);
        for (int answer = 0; answer < message.awaited; ++answer)
            text += client.hear();
    }
    client.say(asking("ReadBUID"), kLastQuestion);
    for (std::string answer; !text.ends_with("the end\n"); text += answer) {
        answer = client.hear();
        if (answer.empty())
            break;
    }
    return text;
}

} // namespace

TEST_F(DaemonTest, TheSimulatorsOwnMultiplexerAnswersAlike)
{
    const std::string scenario
        = R"({"devices": [{"udid": ")" + kPhone + R"("}], "multiplexer": ")" + release() + "\"}";
    start(scenario);
    const SimulatorProcess own(scenario);
    const Data record = *encodeBinaryPropertyList(Dictionary { { "HostID", "H" } });
    const std::string other = "00008110-00FACADE0099002E";
    const auto connecting = [](int device, unsigned port) {
        return asking("Connect",
            { { "DeviceID", device },
                { "PortNumber", static_cast<int>((port & 0xff) << 8 | port >> 8) } });
    };
    const auto saving = [&](const Value& content, const std::string& name) {
        return asking(
            "SavePairRecord", { { "PairRecordID", name }, { "PairRecordData", content } });
    };
    const auto savingFor = [&](const std::string& name) {
        return asking("SavePairRecord",
            { { "PairRecordID", name }, { "PairRecordData", record }, { "DeviceID", 1 } });
    };
    const auto about = [](const char* type, const Value& name) {
        return asking(type, { { "PairRecordID", name } });
    };
    const std::pair<const char*, std::vector<MuxMessage>> rows[] = {
        { "the host's identifier", { asking("ReadBUID") } },
        { "the devices", { asking("ListDevices") } },
        { "the listeners", { asking("ListListeners") } },
        { "listening", { answered(asking("Listen"), 2) } },
        { "listening twice", { answered(asking("Listen"), 2), asking("Listen") } },
        { "listening, then a list", { answered(asking("Listen"), 2), asking("ListDevices") } },
        { "listening in the old form", { answered({ .version = 0, .type = 3 }, 2) } },
        { "an unknown request", { asking("Nonsense") } },
        { "an unknown request in the old form", { { .version = 0, .type = 77 } } },
        { "another version", { { dataOf("x"), 2 } } },
        { "another version after a property list", { asking("ReadBUID"), { dataOf("x"), 7 } } },
        { "no property list", { { dataOf("nonsense") } } },
        { "an empty message", { {} } },
        { "a property list without a type", { containing({ { "A", "B" } }) } },
        { "a type that is no text", { containing({ { "MessageType", 1 } }) } },
        { "a length that is too short", { { .length = 3 } } },
        { "a length that is too long", { { .length = 0x10001 } } },
        { "connecting without a device", { asking("Connect", { { "PortNumber", 1 } }) } },
        { "connecting without a port", { asking("Connect", { { "DeviceID", 1 } }) } },
        { "connecting to an unknown device", { connecting(9, 62078) } },
        { "connecting to a closed port", { answered(connecting(1, 9), 1) } },
        { "connecting to an unknown device in the old form", { { words({ 9, 0x7ef2 }), 0, 2 } } },
        { "reading a record without a name", { asking("ReadPairRecord") } },
        { "reading a record of a name that is no text", { about("ReadPairRecord", 1) } },
        { "reading an unknown record", { about("ReadPairRecord", other) } },
        { "saving without a name", { asking("SavePairRecord", { { "PairRecordData", record } }) } },
        { "saving without a record", { about("SavePairRecord", other) } },
        { "saving a text as a record", { saving("text", other) } },
        { "saving garbage", { saving(dataOf("garbage, and no record"), other) } },
        { "saving too little", { saving(dataOf("short"), other) } },
        { "saving a list", { saving(*encodeXmlPropertyList(Array { 1 }), other) } },
        { "saving under a name that leads out of the directory", { saving(record, "../../x") } },
        { "saving, reading, deleting, deleting again, reading",
            { saving(record, other), about("ReadPairRecord", other),
                about("DeletePairRecord", other), about("DeletePairRecord", other),
                about("ReadPairRecord", other) } },
        { "saving for an attached device of another name", { savingFor(other) } },
        { "deleting without a name", { asking("DeletePairRecord") } },
    };
    for (const auto& [situation, messages] : rows) {
        EXPECT_EQ(conversation(own.multiplexer(), messages),
            conversation(m_simulator->multiplexer(), messages))
            << situation;
    }

    // A listener is told of a record that is saved for an attached device, and of no other.
    const auto heard = [&](const std::filesystem::path& socket) {
        const MuxClient listener(socket);
        listener.say(asking("Listen"), kQuestion);
        const std::string listening = listener.hear() + listener.hear();
        return listening + conversation(socket, { savingFor(kPhone) }) + listener.hear();
    };
    EXPECT_EQ(heard(own.multiplexer()), heard(m_simulator->multiplexer()));

    // The socket belongs to all users, and its queue is short.
    const auto mode = [](const std::filesystem::path& socket) {
        struct stat status { };
        EXPECT_EQ(stat(socket.c_str(), &status), 0);
        return status.st_mode;
    };
    EXPECT_EQ(mode(own.multiplexer()), mode(m_simulator->multiplexer()));

    // Records that cannot be saved: a file is in the way of the directory.
    const auto blocked = [&](const std::filesystem::path& directory) {
        const auto records = directory / "lib" / "lockdown";
        std::filesystem::remove_all(records);
        std::ofstream(records) << "in the way";
    };
    blocked(own.directory());
    blocked(m_simulator->directory());
    EXPECT_EQ(conversation(own.multiplexer(), { savingFor(kPhone) }),
        conversation(m_simulator->multiplexer(), { savingFor(kPhone) }))
        << "a record that cannot be saved";
}
