#include "Devices/DeviceList.h"
#include "Errors/Advice.h"
#include "Multiplexer/MultiplexerClient.h"
#include "Multiplexer/MultiplexerConversation.h"
#include "Platform/System/LocalSocket.h"
#include "Platform/Values/PropertyList.h"
#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

namespace tdw::cli {

namespace {

using namespace std::chrono_literals;

TEST(MultiplexerAddress, IsReadAsTheDeviceLibrariesReadIt)
{
    const MultiplexerAddress usual { .path = "/var/run/usbmuxd" };
    const std::pair<const char*, MultiplexerAddress> rows[] = {
        { nullptr, usual },
        { "", usual },
        { "UNIX:", usual },
        { "/path/alone", usual },
        { "host:", usual },
        { "host:70000", usual },
        { "host:1x", usual },
        { ":80", usual },
        { "UNIX:/a:b", { .path = "/a:b", .isFromEnvironment = true } },
        { "localhost:27015", { .host = "localhost", .port = 27015, .isFromEnvironment = true } },
        { "[::1]:27015", { .host = "::1", .port = 27015, .isFromEnvironment = true } },
    };
    for (const auto& [variable, address] : rows)
        EXPECT_EQ(multiplexerAddress(variable), address) << (variable ? variable : "");
    EXPECT_EQ(multiplexerAddress("[::1]:27015").description(), "[::1]:27015");
}

Data framed(const Value& body)
{
    const auto bytes = encodeXmlPropertyList(body);
    Data frame = deviceListRequest();
    frame.resize(16);
    const std::size_t length = 16 + bytes->size();
    frame[0] = static_cast<std::byte>(length);
    frame[1] = static_cast<std::byte>(length >> 8);
    frame.insert(frame.end(), bytes->begin(), bytes->end());
    return frame;
}

TEST(MultiplexerReply, IsTakenApartByteByByte)
{
    const Dictionary list { { "DeviceList", Array {} } };
    const Data frame = framed(list);
    MultiplexerReply reply;
    for (std::size_t i = 0; i < frame.size(); ++i) {
        EXPECT_EQ(reply.state(), MultiplexerReply::State::Incomplete) << i;
        reply.append(std::span(frame).subspan(i, 1));
    }
    EXPECT_EQ(reply.state(), MultiplexerReply::State::Complete);
    EXPECT_EQ(reply.body(), list);
}

TEST(MultiplexerReply, AnythingElseIsRefusedAtOnce)
{
    Data huge = framed(Dictionary {});
    huge[3] = std::byte { 0x7F };
    Data tooShort = framed(Dictionary {});
    tooShort[0] = tooShort[1] = std::byte { 0 };
    const Data noFrame(64, std::byte { 1 });
    for (const Data& bytes : { huge, tooShort, noFrame, framed(Array {}) }) {
        MultiplexerReply reply;
        reply.append(bytes);
        EXPECT_EQ(reply.state(), MultiplexerReply::State::Malformed);
    }
    EXPECT_EQ(udidsIn({ { "Number", 0 } }), std::nullopt);
}

TEST(MultiplexerReply, APairRecordCountsOnlyWhereTheDeviceLibrariesCanUseIt)
{
    const auto record = [](const Value& content) {
        return Dictionary { { "PairRecordData", *encodeBinaryPropertyList(content) } };
    };
    EXPECT_TRUE(isUsablePairRecord(record(Dictionary { { "HostID", "7E57" } })));
    EXPECT_FALSE(isUsablePairRecord(record(Dictionary { { "HostID", 5 } })));
    EXPECT_FALSE(isUsablePairRecord(record("HostID")));
    EXPECT_FALSE(isUsablePairRecord({ { "PairRecordData", Data(9) } }));
    EXPECT_FALSE(isUsablePairRecord({ { "MessageType", "Result" }, { "Number", 2 } }));
}

/// A socket of its own that is listened on as long as it lives.
struct LocalListener {
    /// Reads a request and answers it.
    void serve(const Value& reply) const
    {
        const FileHandle connection(accept4(socket.descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
        char request[4096];
        EXPECT_GT(read(connection.descriptor(), request, sizeof request), 0);
        EXPECT_TRUE(writeToDescriptor(connection.descriptor(), framed(reply)));
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path() / "socket";
    FileHandle socket = *listenOnLocalSocket(path);
};

MultiplexerState stateOf(const std::string& path)
{
    EventLoop loop = *EventLoop::create();
    MultiplexerClient client(loop, { .path = path }, 100ms);
    return waitFor<MultiplexerReport>(loop, [&](auto handler) {
        client.probe(std::move(handler));
    }).state;
}

TEST(MultiplexerClient, TellsWhatIsWrongWithTheSocket)
{
    EXPECT_EQ(stateOf("/nonexistent/usbmuxd"), MultiplexerState::Absent);
    EXPECT_EQ(stateOf(std::string(200, 'x')), MultiplexerState::Unreachable);
    LocalListener listener;
    EXPECT_EQ(stateOf(listener.path), MultiplexerState::Silent);
    listener.socket.close();
    EXPECT_EQ(stateOf(listener.path), MultiplexerState::NotListening);
}

TEST(MultiplexerClient, AFullQueueIsWaitedFor)
{
    const Value list = Dictionary { { "DeviceList",
        Array { Dictionary { { "Properties", Dictionary { { "SerialNumber", "00AB-1" } } } } } } };
    const LocalListener listener;
    EXPECT_EQ(listen(listener.socket.descriptor(), 0), 0);
    EventLoop loop = *EventLoop::create();
    MultiplexerClient client(loop, { .path = listener.path }, 20s);
    std::vector<Result<std::vector<std::string>>> answers;
    constexpr std::size_t kCount = 8; // One has room in the queue.
    for (std::size_t i = 0; i < kCount; ++i)
        client.listDevices([&](auto udids) { answers.push_back(std::move(udids)); });
    std::thread server([&] {
        for (std::size_t i = 0; i < kCount; ++i)
            listener.serve(list);
    });
    loop.runUntil([&] { return answers.size() == kCount; });
    server.join();
    for (const auto& answer : answers)
        EXPECT_THAT(*answer, testing::ElementsAre("00AB-1"));
}

TEST(MultiplexerError, AdvisesByWhatThereIs)
{
    const MultiplexerReport own { { .path = "/var/run/usbmuxd" }, MultiplexerState::NotListening };
    const MultiplexerReport other { { .path = "/x", .isFromEnvironment = true },
        MultiplexerState::Absent };
    const std::tuple<MultiplexerReport, MultiplexerSurroundings, const char*> rows[] = {
        { own, { .isInstalled = true, .isDeviceOnCable = false }, "Connect a device" },
        { own, { .isInstalled = true, .isDeviceOnCable = true }, "systemctl start usbmuxd" },
        { own, { .isInstalled = false, .isDeviceOnCable = true }, "apt install usbmuxd" },
        { other, { .isInstalled = false, .isDeviceOnCable = true }, "USBMUXD_SOCKET_ADDRESS" },
    };
    for (const auto& [report, surroundings, advice] : rows)
        EXPECT_THAT(adviceFor(multiplexerError(report, std::nullopt, surroundings)),
            testing::HasSubstr(advice));
}

TEST(DeviceList, AMalformedListIsAnErrorAndNotAnEmptyList)
{
    for (const Value& payload :
        { Value(Dictionary {}), Value("x"), Value(Dictionary { { "Devices", Array { "x" } } }),
            Value(Dictionary { { "Devices", Array { Dictionary { { "UDID", "x" } } } } }) })
        EXPECT_FALSE(parseDeviceList(payload)) << payload.debugDescription();
}

} // namespace

} // namespace tdw::cli
