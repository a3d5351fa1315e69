#pragma once

#include "Platform/System/FileHandle.h"
#include "Support/Testing.h"

#include <sys/mman.h>

/// Takes what this process writes to one of its standard streams for as long as it lives.
class CapturedStream {
public:
    explicit CapturedStream(int descriptor)
        : m_descriptor(descriptor)
        , m_saved(fcntl(descriptor, F_DUPFD_CLOEXEC, 3))
        , m_file(memfd_create("captured", MFD_CLOEXEC))
    {
        dup2(m_file.descriptor(), m_descriptor);
    }
    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;
    ~CapturedStream() { dup2(m_saved.descriptor(), m_descriptor); }

    std::string text()
    {
        lseek(m_file.descriptor(), 0, SEEK_SET);
        return textOf(*m_file.readToEnd());
    }

private:
    int m_descriptor;
    tdw::FileHandle m_saved;
    tdw::FileHandle m_file;
};
