#include "Support/LineReader.h"

#include "Platform/Counter.h"
#include "Support/Testing.h"

using namespace tdw;
using namespace matchers;

namespace {

using Lines = std::vector<std::string>;

void print(const FileHandle& handle, std::string_view text)
{
    EXPECT_TRUE(writeToDescriptor(handle.descriptor(), std::as_bytes(std::span(text))));
}

/// A reader of a pipe, with the lines that it has given. Every reading is over before this goes.
struct Reading {
    explicit Reading(StringEncoding encoding = StringEncoding::Utf8, std::string lastLine = "\n")
        : stopAt(std::move(lastLine))
    {
        start(encoding);
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
    ~Reading()
    {
        reader.stopReadingLines();
        EXPECT_TRUE(ends.reaches(starts));
    }

    void start(StringEncoding encoding = StringEncoding::Utf8)
    {
        const auto take = [this](const FileHandle& handle, const std::string& line, bool& stop) {
            EXPECT_EQ(handle.descriptor(), descriptor);
            lines.push_back(line);
            stop = line == stopAt;
            delivered.add();
        };
        EXPECT_TRUE(
            reader.startReadingLinesWithEncoding(encoding, queue, take, [this] { ends.add(); }));
        ++starts;
    }

    const std::string stopAt;
    const Queue queue = Queue::serial("lines");
    Pipe pipe = *Pipe::create();
    const int descriptor = pipe.reader.descriptor();
    LineReader reader { std::move(pipe.reader) };
    Lines lines;
    Counter delivered;
    Counter ends;
    int starts = 0;
};

} // namespace

TEST(LineReader, DeliversLinesOfItsEncodingUntilTheEndOfTheFile)
{
    using enum StringEncoding;
    const std::tuple<StringEncoding, std::string, Lines> cases[] = {
        { Utf8, "a\n\nx\r\nb", { "a", "", "x\r", "b" } },
        { Utf8, "\xc3\xbc\nbad \xff\nnext\n\xc3", { "\xc3\xbc", "next" } },
        { Ascii, "a\n\xc3\xbc\nb\n", { "a", "b" } },
        { IsoLatin1, "\xfc\xe9z\n\x80", { "\u00fc\u00e9z", "\u0080" } },
        { StringEncoding { 10 }, "a\nb", {} },
    };
    for (const auto& [encoding, bytes, lines] : cases) {
        Reading reading(encoding);
        print(reading.pipe.writer, bytes);
        reading.pipe.writer.close();
        ASSERT_TRUE(reading.ends.reaches(1));
        EXPECT_EQ(reading.lines, lines);
    }
}

TEST(LineReader, DeliversALineAsSoonAsItIsWhole)
{
    Reading reading;
    print(reading.pipe.writer, "first\nsec");
    ASSERT_TRUE(reading.delivered.reaches(1));
    print(reading.pipe.writer, "ond\n");
    ASSERT_TRUE(reading.delivered.reaches(2));
    EXPECT_THAT(reading.lines, ElementsAre("first", "second"));
    EXPECT_EQ(reading.ends.value(), 0);
    EXPECT_EQ(fcntl(reading.descriptor, F_GETFL) & O_NONBLOCK, 0)
        << "the descriptor's mode is kept";
}

TEST(LineReader, StopsWhenTheBlockSaysSo)
{
    Reading reading(StringEncoding::Utf8, "1");
    print(reading.pipe.writer, "1\n2\n3\n");
    ASSERT_TRUE(reading.ends.reaches(1));
    EXPECT_THAT(reading.lines, ElementsAre("1"));
}

TEST(LineReader, ReadsARegularFileToItsEnd)
{
    LineReader reader { FileHandle(open("/proc/self/status", O_RDONLY | O_CLOEXEC)) };
    std::string last;
    Counter ends;
    EXPECT_TRUE(reader.startReadingLinesWithEncoding(
        StringEncoding::Utf8, std::nullopt,
        [&](const FileHandle&, const std::string& line, bool&) { last = line; },
        [&] { ends.add(); }));
    ASSERT_TRUE(ends.reaches(1));
    EXPECT_THAT(last, StartsWith("nonvoluntary_ctxt_switches:"));
}

TEST(LineReader, IsReplacedByAnotherStartAndByNothingElse)
{
    Reading reading;
    EXPECT_TRUE(reading.reader.startReadingLinesWithBlock(nullptr));
    print(reading.pipe.writer, "old\n");
    ASSERT_TRUE(reading.delivered.reaches(1)) << "without a block nothing happens";
    // Many times, because the end of each earlier reading comes later than the next start.
    constexpr int kTimes = 200;
    for (int i = 0; i < kTimes; ++i)
        reading.start();
    print(reading.pipe.writer, "new\n");
    ASSERT_TRUE(reading.delivered.reaches(2));
    ASSERT_TRUE(reading.ends.reaches(kTimes)) << "all but the last are over";
    print(reading.pipe.writer, "still\n");
    ASSERT_TRUE(reading.delivered.reaches(3));
    EXPECT_THAT(reading.lines, ElementsAre("old", "new", "still"));
}

TEST(LineReader, GoesWithItsHandleEvenInABlock)
{
    Pipe pipe = *Pipe::create();
    Counter ends;
    int lines = 0;
    auto reader = std::make_unique<LineReader>(std::move(pipe.reader));
    print(pipe.writer, "1\n2\n");
    EXPECT_TRUE(reader->startReadingLinesWithEncoding(
        StringEncoding::Utf8, std::nullopt,
        [&](const FileHandle& handle, const std::string&, bool&) {
            ++lines;
            reader.reset();
            EXPECT_NE(fcntl(handle.descriptor(), F_GETFD), -1) << "open while it is handed out";
        },
        [&] { ends.add(); }));
    ASSERT_TRUE(ends.reaches(1));
    EXPECT_EQ(lines, 1);
    pollfd entry { pipe.writer.descriptor(), 0, 0 };
    EXPECT_EQ(poll(&entry, 1, 0), 1) << "the reading end is closed";
}

TEST(LineReader, SaysWhatCannotBeRead)
{
    LineReader reader { FileHandle() };
    const auto failed
        = reader.startReadingLinesWithBlock([](const FileHandle&, const std::string&, bool&) {});
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().code(), EBADF);
}
