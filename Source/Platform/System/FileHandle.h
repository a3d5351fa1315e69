#pragma once

#include "Platform/Export.h"
#include "Platform/Values/Data.h"
#include "Platform/Values/Result.h"

#include <cstddef>
#include <span>

namespace tdw {

/// Owns one descriptor and closes it at the end of its life.
///
/// Not safe for use by two threads at once; reading one end of a pipe while another thread writes
/// the other is.
class TDW_EXPORT FileHandle {
public:
    /// A handle that owns nothing.
    FileHandle() = default;

    /// Takes the descriptor over. It should be close-on-exec from its creation.
    explicit FileHandle(int descriptor)
        : m_descriptor(descriptor)
    {
    }

    FileHandle(FileHandle&& other) noexcept;
    FileHandle& operator=(FileHandle&& other) noexcept;
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    ~FileHandle();

    bool isOpen() const { return m_descriptor >= 0; }

    /// The descriptor, still owned by this handle, or -1.
    int descriptor() const { return m_descriptor; }

    /// Gives the descriptor up to the caller, who closes it.
    [[nodiscard]] int release();

    void close();

    /// Reads until end of file. Blocks until then; waits also on a non-blocking descriptor.
    /// Errors: `kPosixErrorDomain`.
    Result<Data> readToEnd();

    /// Writes everything: with one call where the system takes it all, with further ones only
    /// after a short write, an interruption or a full non-blocking descriptor.
    /// Errors: `kPosixErrorDomain` (EPIPE, ENOSPC, …).
    Result<void> write(std::span<const std::byte> bytes);

private:
    int m_descriptor = -1;
};

/// `FileHandle::write` on a descriptor with another owner (standard output, say).
TDW_EXPORT Result<void> writeToDescriptor(int descriptor, std::span<const std::byte> bytes);

/// `FileHandle::readToEnd` on a descriptor with another owner.
TDW_EXPORT Result<Data> readDescriptorToEnd(int descriptor);

/// The two ends of a pipe, both close-on-exec.
struct TDW_EXPORT Pipe {
    FileHandle reader;
    FileHandle writer;

    /// Errors: `kPosixErrorDomain` (EMFILE, ENFILE).
    static Result<Pipe> create();
};

} // namespace tdw
