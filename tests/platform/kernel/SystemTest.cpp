#include "platform/kernel/Files.h"

#include "support/FakeMachine.h"
#include "support/FolderTree.h"

#include <gtest/gtest.h>

#include <string_view>

namespace kernel = platform::kernel;

TEST(Files, WellKnownPathsLieWhereTheMachineSays)
{
    support::FolderTree tree;
    support::FakeMachine::Installed().mFiles.mRoot = tree.Root();
    tree.Write("kernel", "symbols");
    tree.Write("empty", "");

    const int file = kernel::open("/kernel"), empty = kernel::open("/empty"), folder = kernel::open("/");
    kernel::FileTimes byPath{}, byDescriptor{};
    ASSERT_EQ(kernel::stat("/kernel", &byPath), 0);
    ASSERT_EQ(kernel::fstat(file, &byDescriptor), 0);
    EXPECT_EQ(byPath.mModifiedNanos, byDescriptor.mModifiedNanos);

    size_t bytes = 0;
    const uint8_t* content = kernel::MapWholeFile(file, &bytes);
    ASSERT_NE(content, nullptr);
    EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(content), bytes), "symbols");
    kernel::UnmapFile(content, bytes);
    EXPECT_EQ(kernel::MapWholeFile(empty, &bytes), nullptr);
    EXPECT_EQ(kernel::MapWholeFile(folder, &bytes), nullptr);
    for (const int descriptor : {file, empty, folder}) EXPECT_EQ(kernel::close(descriptor), 0);
    EXPECT_EQ(kernel::open("/missing"), -1);
}
