#pragma once

#include "Platform/Queues/Queue.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/Result.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tdw {

/// How the bytes of a line become text, by the platform's numbers. Lines that are not valid in the
/// encoding are left out; in an encoding that is not named here, none is valid.
enum class StringEncoding : std::uint64_t { Ascii = 1, Utf8 = 4, IsoLatin1 = 5 };

/// Reads a descriptor as data becomes available and hands its lines, as UTF-8 text, to a block.
///
///     LineReader reader(std::move(pipe.reader));
///     reader.startReadingLinesWithBlock(
///         [](FileHandle&, const std::string& line, bool& stop) { … });
///
/// One reading goes on at a time: from a start until the end of the file, an error of `read`, a
/// block that says stop, `stopReadingLines`, the next start, or the end of this object. All that
/// belongs to a reading goes with it, so a later one loses nothing to the end of an earlier one;
/// bytes that an ended reading had read and not delivered are lost.
///
/// Blocks run on the reading's queue, never twice at once. After a stop on another thread, one
/// that was on its way may still run; after a stop in a block, none does. Blocks may call
/// everything here, and destroy the reader. Safe for use by several threads at once.
class LineReader {
public:
    /// Called with the handle that is read, a line without its newline, and a flag to set when no
    /// further line is wanted.
    using LineBlock = std::function<void(FileHandle& handle, const std::string& line, bool& stop)>;

    /// Called once, after the last line, however a reading ended. May be empty.
    using EndBlock = std::function<void()>;

    /// Takes the handle over. It is closed at the end of this object, or after the block that runs
    /// at that moment.
    explicit LineReader(FileHandle handle);
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;
    ~LineReader();

    /// Ends the reading that goes on and starts another. Without a block nothing happens at all.
    /// @param queue none: the global queue of utility quality
    /// Errors: `kPosixErrorDomain` (EBADF, EMFILE, …), where the descriptor cannot be watched; then
    /// nothing goes on, and neither block is called.
    Result<void> startReadingLinesWithEncoding(StringEncoding encoding, std::optional<Queue> queue,
        LineBlock block, EndBlock end = nullptr);

    /// The same in UTF-8 and without a queue.
    Result<void> startReadingLinesWithBlock(LineBlock block);

    void stopReadingLines();

    /// To be called when the server has ended: delivers what can be read now, with an unterminated
    /// last line, and ends the reading, although another process may keep the other end open or
    /// go on writing. Returns at once; the lines come on the queue.
    void finishReadingLines();

private:
    class Reading;
    std::shared_ptr<Reading> current() const;
    std::shared_ptr<Reading> exchange(std::shared_ptr<Reading> reading);

    const std::shared_ptr<FileHandle> m_handle;
    mutable std::mutex m_mutex;
    std::shared_ptr<Reading> m_reading; // belongs to the mutex
};

} // namespace tdw
