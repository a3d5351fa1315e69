#include "Support/LineReader.h"

#include "Platform/Queues/EventSource.h"
#include "Platform/Values/Utf8.h"
#include "Support/LineSplitter.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <span>
#include <string_view>
#include <utility>

namespace tdw {

namespace {

constexpr std::size_t kReadBytes = 4096;
constexpr unsigned char kFirstBeyondAscii = 0x80;

bool isAscii(std::string_view bytes)
{
    return std::ranges::all_of(
        bytes, [](char byte) { return static_cast<unsigned char>(byte) < kFirstBeyondAscii; });
}

/// Every byte is a character of Latin-1, and is that character's code point.
std::string textOfLatin1(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        const auto code = static_cast<unsigned char>(byte);
        if (code < kFirstBeyondAscii) {
            text += byte;
        } else {
            text += static_cast<char>(0xc0 | code >> 6);
            text += static_cast<char>(0x80 | (code & 0x3f));
        }
    }
    return text;
}

std::optional<std::string> decoded(std::string_view bytes, StringEncoding encoding)
{
    switch (encoding) {
    case StringEncoding::Ascii:
        return isAscii(bytes) ? std::optional<std::string>(bytes) : std::nullopt;
    case StringEncoding::Utf8:
        return isValidUtf8(bytes) ? std::optional<std::string>(bytes) : std::nullopt;
    case StringEncoding::IsoLatin1:
        return textOfLatin1(bytes);
    }
    return std::nullopt;
}

} // namespace

/// Everything that belongs to one reading. The reader owns it; the handlers of its source hold it
/// weakly, or the two would keep each other alive.
class LineReader::Reading : public std::enable_shared_from_this<LineReader::Reading> {
public:
    Reading(
        std::shared_ptr<FileHandle> handle, StringEncoding encoding, Queue queue, LineBlock block)
        : m_handle(std::move(handle))
        , m_encoding(encoding)
        , m_queue(std::move(queue))
        , m_block(std::move(block))
    {
    }

    /// To be called once, before anything else.
    Result<void> watch(EndBlock end)
    {
        SourceHandlers handlers;
        handlers.event = [weak = weak_from_this()] {
            if (const auto self = weak.lock())
                self->handleReadiness();
        };
        handlers.cancel = [weak = weak_from_this(), end = std::move(end)] {
            if (const auto self = weak.lock())
                self->waitForDelivery();
            if (end)
                end();
        };
        m_source
            = TDW_TRY(ReadSource::create(m_handle->descriptor(), m_queue, std::move(handlers)));
        return {};
    }

    void resume() { m_source->resume(); }
    void cancel() { m_source->cancel(); }

    void finish()
    {
        m_queue.async([self = shared_from_this()] { self->deliverAvailable(); });
    }

private:
    void handleReadiness()
    {
        const std::lock_guard lock(m_delivering);
        if (!m_source->isCancelled())
            (void)readOnce();
    }

    void deliverAvailable()
    {
        const std::lock_guard lock(m_delivering);
        // What is in the pipe now is all there is; later bytes are another process's.
        int available = 0;
        if (::ioctl(m_handle->descriptor(), FIONREAD, &available) != 0)
            available = 0;
        while (available > 0 && !m_source->isCancelled()) {
            const auto count = readOnce(static_cast<std::size_t>(available));
            if (count == 0 && errno != EINTR)
                break;
            available -= static_cast<int>(count);
        }
        if (!m_source->isCancelled())
            deliverRest();
    }

    /// Reads once and delivers what that gives; says how much it was.
    std::size_t readOnce(std::size_t limit = kReadBytes)
    {
        std::array<std::byte, kReadBytes> bytes {};
        const ssize_t count
            = ::read(m_handle->descriptor(), bytes.data(), std::min(limit, bytes.size()));
        if (count > 0) {
            m_splitter.append(std::span(bytes).first(static_cast<std::size_t>(count)));
            deliverLines();
            return static_cast<std::size_t>(count);
        }
        if (count == 0)
            deliverRest();
        else if (errno != EAGAIN && errno != EINTR)
            cancel();
        return 0;
    }

    void deliverLines()
    {
        while (!m_source->isCancelled()) {
            const auto line = m_splitter.next();
            if (!line)
                return;
            deliver(*line);
        }
    }

    void deliverRest()
    {
        if (const auto line = m_splitter.rest())
            deliver(*line);
        cancel();
    }

    void deliver(std::string_view line)
    {
        const auto text = decoded(line, m_encoding);
        if (!text)
            return;
        bool stop = false;
        m_block(*m_handle, *text, stop);
        if (stop)
            cancel();
    }

    /// On a concurrent queue the source may be at its end while `finish` still delivers.
    void waitForDelivery() { const std::lock_guard lock(m_delivering); }

    const std::shared_ptr<FileHandle> m_handle;
    const StringEncoding m_encoding;
    const Queue m_queue;
    const LineBlock m_block;
    // Set before the first event; goes before the handle, which must not be closed under it.
    std::optional<ReadSource> m_source;

    std::mutex m_delivering;
    // Belongs to the mutex.
    LineSplitter m_splitter;
};

LineReader::LineReader(FileHandle handle)
    : m_handle(std::make_shared<FileHandle>(std::move(handle)))
{
}

LineReader::~LineReader()
{
    stopReadingLines();
}

Result<void> LineReader::startReadingLinesWithEncoding(
    StringEncoding encoding, std::optional<Queue> queue, LineBlock block, EndBlock end)
{
    if (!block)
        return {};
    stopReadingLines();
    const auto reading = std::make_shared<Reading>(m_handle, encoding,
        queue ? *std::move(queue) : Queue::global(QualityOfService::Utility), std::move(block));
    TDW_TRY(reading->watch(std::move(end)));
    // Before its first block runs, which may want to stop it.
    if (const auto replaced = exchange(reading))
        replaced->cancel();
    reading->resume();
    return {};
}

Result<void> LineReader::startReadingLinesWithBlock(LineBlock block)
{
    return startReadingLinesWithEncoding(StringEncoding::Utf8, std::nullopt, std::move(block));
}

void LineReader::stopReadingLines()
{
    if (const auto reading = exchange(nullptr))
        reading->cancel();
}

void LineReader::finishReadingLines()
{
    if (const auto reading = current())
        reading->finish();
}

std::shared_ptr<LineReader::Reading> LineReader::current() const
{
    const std::lock_guard lock(m_mutex);
    return m_reading;
}

std::shared_ptr<LineReader::Reading> LineReader::exchange(std::shared_ptr<Reading> reading)
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_reading, std::move(reading));
}

} // namespace tdw
