#pragma once

#include "Support/Testing.h"

/// A directory of its own, gone with the object.
class TemporaryDirectory {
public:
    TemporaryDirectory()
    {
        std::string name = std::filesystem::temp_directory_path() / "tidewell-test-XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        m_path = name;
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    const std::filesystem::path& path() const { return m_path; }

    /// The names of what is in it.
    std::vector<std::string> names() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_path))
            names.push_back(entry.path().filename());
        return names;
    }

private:
    std::filesystem::path m_path;
};
