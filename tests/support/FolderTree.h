// FolderTree: files of a test, in a folder of their own that goes when the test ends.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace support {

class FolderTree {
public:
    FolderTree()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "corvane-XXXXXX").string();
        if (!mkdtemp(pattern.data())) ADD_FAILURE() << "no folder for the test's files";
        mRoot = pattern;
    }
    FolderTree(const FolderTree&) = delete;
    FolderTree& operator=(const FolderTree&) = delete;
    ~FolderTree()
    {
        std::error_code error;
        std::filesystem::remove_all(mRoot, error);
    }

    /// The full path of `name`, its folders made.
    std::string Path(const std::string& name) const
    {
        const std::filesystem::path path = mRoot / name;
        std::filesystem::create_directories(path.parent_path());
        return path.string();
    }
    std::string Write(const std::string& name, const std::string& content) const
    {
        const std::string path = Path(name);
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    void Link(const std::string& name, const std::string& target) const
    {
        std::filesystem::remove(Path(name));
        std::filesystem::create_symlink(target, Path(name));
    }
    std::string Root() const { return mRoot.string(); }

private:
    std::filesystem::path mRoot;
};

}  // namespace support
