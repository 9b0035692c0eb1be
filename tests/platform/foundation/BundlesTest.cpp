#include "platform/foundation/CFBundle.h"
#include "platform/kernel/IOKit.h"
#include "support/FakeMachine.h"
#include "support/FolderTree.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

// Before any case of this program asks for a machine.
support::FakeMachine& sMachine = support::FakeMachine::Installed();

class Bundles : public testing::Test {
protected:
    Bundles()
    {
        sMachine.mFiles.mRoot = mTree.Root();
        fs::create_directory(mFolder);
    }

    /// Makes a bundle whose Info.plist has these keys and strings.
    fs::path Make(const std::string& name, const std::vector<std::pair<std::string, std::string>>& info)
    {
        fs::create_directories(mFolder / name);
        std::ofstream plist(mFolder / name / "Info.plist");
        plist << "<plist><dict>";
        for (const auto& [key, value] : info) plist << "<key>" << key << "</key><string>" << value << "</string>";
        plist << "</dict></plist>";
        return mFolder / name;
    }

    const support::FolderTree mTree;
    const fs::path mFolder = mTree.Root() + "/bundles";
};

cf::Ref<cf::Bundle> Open(const fs::path& folder)
{
    return cf::Ref<cf::Bundle>::Adopt(CFBundleCreate(kCFAllocatorDefault, folder.c_str()));
}

/// The numbers of all services of the test bundle's class, each released.
std::vector<int64_t> WitnessNumbers()
{
    io_iterator_t iterator = IO_OBJECT_NULL;
    EXPECT_EQ(IOServiceGetMatchingServices(kIOMasterPortDefault, IOServiceMatching("org_corvane_Witness"), &iterator),
              0);
    std::vector<int64_t> numbers;
    while (const io_service_t service = IOIteratorNext(iterator)) {
        const auto number =
            cf::Ref<cf::Object>::Adopt(IORegistryEntryCreateCFProperty(service, CFSTR("number"), nullptr, 0));
        CFNumberGetValue(cf::As<cf::Number>(number.Get()), kCFNumberSInt64Type, &numbers.emplace_back());
        EXPECT_EQ(IOObjectRelease(service), kIOReturnSuccess);
    }
    EXPECT_EQ(IOObjectRelease(iterator), kIOReturnSuccess);
    return numbers;
}

TEST_F(Bundles, HostAndBundleShareOnePlatform)
{
    const auto bundle = Open(WITNESS_BUNDLE);
    ASSERT_TRUE(bundle);
    void* create = CFBundleGetFunctionPointerForName(bundle.Get(), CFSTR("CorvaneCreateService"));
    ASSERT_NE(create, nullptr);
    const std::unique_ptr<platform::kernel::IOService> witness(
        reinterpret_cast<platform::kernel::IOService* (*)()>(create)());
    const auto constant = cf::Ref<cf::Object>::Adopt(witness->CopyProperty(CFSTR("constant")));
    EXPECT_EQ(constant.Get(), CFSTR("made by whoever comes first"));
    const auto machine = cf::Ref<cf::Object>::Adopt(witness->CopyProperty(CFSTR("machine")));
    int64_t address = 0;
    CFNumberGetValue(cf::As<cf::Number>(machine.Get()), kCFNumberSInt64Type, &address);
    EXPECT_EQ(address, reinterpret_cast<int64_t>(&platform::machine::Machine::Current()));
}

TEST_F(Bundles, ServicesAreFoundInTheOrderOfNamesAndMadeOnceAProcess)
{
    EXPECT_TRUE(WitnessNumbers().empty());
    Make("Broken.bundle", {{"CorvaneServiceClass", "org_corvane_Witness"}, {"CFBundleExecutable", "libabsent.so"}});
    Make("Other.bundle", {{"CorvaneServiceClass", "org_corvane_Other"}});
    fs::create_directory(mFolder / "Empty.bundle");
    fs::create_directory_symlink(WITNESS_BUNDLE, mFolder / "Z.bundle");
    fs::create_directory_symlink(WITNESS_BUNDLE, mFolder / "A.bundle");
    fs::create_directory_symlink(WITNESS_BUNDLE, mFolder / "Witness.other");
    const std::vector<int64_t> first = WitnessNumbers();
    ASSERT_EQ(first.size(), 2u);
    EXPECT_LT(first[0], first[1]);
    EXPECT_EQ(WitnessNumbers(), first);
}

TEST_F(Bundles, AreRefusedWithoutAnInfoPlistThatIsASmallRegularFile)
{
    EXPECT_FALSE(Open(mFolder / "absent"));
    EXPECT_FALSE(Open(mFolder)) << "no Info.plist";
    fs::create_directories(mFolder / "folder" / "Info.plist");
    EXPECT_FALSE(Open(mFolder / "folder"));
    fs::create_directory(mFolder / "pipe");
    ASSERT_EQ(mkfifo((mFolder / "pipe" / "Info.plist").c_str(), 0600), 0);
    EXPECT_FALSE(Open(mFolder / "pipe")) << "and opening it does not wait";
    fs::resize_file(Make("huge", {}) / "Info.plist", 4 << 20);
    EXPECT_FALSE(Open(mFolder / "huge"));
    std::ofstream(Make("list", {}) / "Info.plist") << "<plist><array/></plist>";
    EXPECT_FALSE(Open(mFolder / "list"));
}

TEST_F(Bundles, AreFoundByTheIdentifierInTheirInfoAndKept)
{
    Make("A.bundle", {{"Name", "has no identifier"}});
    Make("B.bundle", {{"CFBundleIdentifier", "org.corvane.tests.kept"}});
    EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("org.corvane.tests.absent")), nullptr);
    const CFBundleRef bundle = CFBundleGetBundleWithIdentifier(CFSTR("org.corvane.tests.kept"));
    ASSERT_NE(bundle, nullptr);
    const auto url = cf::Ref<cf::URL>::Adopt(CFBundleCopyBundleURL(bundle));
    EXPECT_EQ(url.Get()->Describe(), mFolder / "B.bundle");
    EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("org.corvane.tests.kept")), bundle);
}

TEST_F(Bundles, LoadNothingFromOutsideTheirFolder)
{
    const fs::path library = fs::path(WITNESS_BUNDLE) / "libWitness.so";
    fs::copy_file(library, mFolder / "libWitness.so");
    for (const std::string& executable :
         {std::string("../libWitness.so"), library.string(), std::string(".."), std::string()}) {
        const auto bundle = Open(Make("Escape.bundle", {{"CFBundleExecutable", executable}}));
        ASSERT_TRUE(bundle);
        EXPECT_EQ(CFBundleGetFunctionPointerForName(bundle.Get(), CFSTR("CorvaneCreateService")), nullptr)
            << executable;
    }
    const auto bundle = Open(WITNESS_BUNDLE);
    EXPECT_EQ(CFBundleGetFunctionPointerForName(bundle.Get(), CFSTR("NoSuchFunction")), nullptr);
}

}  // namespace
