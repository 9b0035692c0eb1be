#include "platform/foundation/PropertyList.h"

#include "platform/foundation/CFDictionary.h"
#include "support/FolderTree.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <limits>
#include <vector>

namespace {

/// What the bytes describe, or "" for none. They are copied to where the byte after the last may not be read.
std::string Read(const std::string& bytes)
{
    const std::vector<char> copy(bytes.begin(), bytes.end());
    const auto list = cf::Ref<cf::Object>::Adopt(cf::CreatePropertyList(copy.data(), copy.size()));
    return list ? list.Get()->Describe() : "";
}

std::string Repeat(size_t count, const std::string& text)
{
    std::string all;
    for (size_t index = 0; index < count; ++index) all += text;
    return all;
}

std::string XML(const std::string& content)
{
    return "<plist version=\"1.0\">" + content + "</plist>";
}

std::string BigEndian(uint64_t value, size_t width)
{
    std::string bytes(width, '\0');
    for (size_t byte = width; byte-- > 0; value >>= 8) bytes[byte] = char(value & 255);
    return bytes;
}

std::string Counted(unsigned char kind, uint64_t count)
{
    if (count < 15) return std::string(1, char(kind << 4 | count));
    return std::string(1, char(kind << 4 | 15)) + '\x13' + BigEndian(count, 8);
}

std::string ArrayOf(const std::vector<uint64_t>& references)
{
    std::string object = Counted(0xA, references.size());
    for (const uint64_t reference : references) object += BigEndian(reference, 4);
    return object;
}

std::string Text(const std::string& text)
{
    return Counted(0x5, text.size()) + text;
}

/// A binary list of these objects, the first of them outermost. References are 4 bytes wide.
std::string Binary(const std::vector<std::string>& objects)
{
    std::string bytes = "bplist00", table;
    for (const std::string& object : objects) {
        table += BigEndian(bytes.size(), 4);
        bytes += object;
    }
    const uint64_t tableAt = bytes.size();
    return bytes + table + BigEndian(4, 7) + BigEndian(4, 1) + BigEndian(objects.size(), 8) + BigEndian(0, 8) +
           BigEndian(tableAt, 8);
}

/// Arrays in one another, `depth` of them.
std::string NestedBinary(size_t depth)
{
    std::vector<std::string> objects;
    for (size_t level = 1; level < depth; ++level) objects.push_back(ArrayOf({level}));
    objects.push_back(ArrayOf({}));
    return Binary(objects);
}

/// A tree of `levels` levels that names each level twice: 2^levels - 1 mentions.
std::string Doubling(size_t levels)
{
    std::vector<std::string> objects;
    for (size_t level = 1; level < levels; ++level) objects.push_back(ArrayOf({level, level}));
    objects.push_back(Text("x"));
    return Binary(objects);
}

const std::string kXML =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//X//Y//EN\" \"http://z/\">\n" +
    XML("<dict><key>a</key><array><integer>-5</integer><real>0.5</real><true/><false/></array>"
        "<key>b</key><string>1 &lt; 2 \xC3\xA9</string><!-- <array> --><key>c</key><data>AAAA</data>"
        "<key>d</key><date>2001-01-01T00:01:00Z</date><key>e</key><integer>18446744073709551615</integer></dict>");
const std::string kBinary =
    Binary({"\xD5" + BigEndian(1, 4) + BigEndian(3, 4) + BigEndian(9, 4) + BigEndian(11, 4) + BigEndian(13, 4) +
                BigEndian(2, 4) + BigEndian(4, 4) + BigEndian(10, 4) + BigEndian(12, 4) + BigEndian(14, 4),
            Text("a"), ArrayOf({5, 6, 7, 8}), Text("b"), std::string("\x67\0001\0 \0<\0 \0002\0 \0\xE9", 15),
            "\x13" + BigEndian(uint64_t(-5), 8), "\x23" + BigEndian(0x3FE0000000000000, 8), "\x09", "\x08", Text("c"),
            std::string("\x43\0\0\0", 4), Text("d"), "\x33" + BigEndian(0x404E000000000000, 8), Text("e"),
            "\x14" + BigEndian(0, 8) + BigEndian(~uint64_t(0), 8)});
const std::string kTree =
    "{ a = (-5, 0.5, true, false); b = 1 < 2 \xC3\xA9; c = 3 bytes; d = 60 s since 2001; e = 18446744073709551615; }";

cf::Ref<cf::Object> Create(const std::string& bytes, std::string* fault = nullptr)
{
    return cf::Ref<cf::Object>::Adopt(cf::CreatePropertyList(bytes.data(), bytes.size(), fault));
}

std::string Written(CFTypeRef tree, CFPropertyListFormat format)
{
    const std::vector<uint8_t> bytes = cf::PropertyListBytes(tree, format);
    return {bytes.begin(), bytes.end()};
}

bool IsAccepted(const std::string& bytes)
{
    return bool(Create(bytes));
}

cf::Ref<cf::Object> Own(CFTypeRef object)
{
    return cf::Ref<cf::Object>::Adopt(object);
}

/// What a file describes, or why it does not.
std::string ReadFile(const std::string& path)
{
    const auto name = Own(CFStringCreateWithCString(kCFAllocatorDefault, path.c_str(), kCFStringEncodingUTF8));
    const auto url = Own(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, cf::As<cf::String>(name.Get()),
                                                       kCFURLPOSIXPathStyle, false));
    const CFReadStreamRef stream = CFReadStreamCreateWithFile(kCFAllocatorDefault, cf::As<cf::URL>(url.Get()));
    const auto owner = Own(stream);
    const bool opened = CFReadStreamOpen(stream);
    CFPropertyListFormat format{};
    CFStringRef error = nullptr;
    const auto tree = Own(CFPropertyListCreateFromStream(kCFAllocatorDefault, stream, 0,
                                                         kCFPropertyListMutableContainers, &format, &error));
    EXPECT_EQ(tree ? format : kCFPropertyListXMLFormat_v1_0, kCFPropertyListXMLFormat_v1_0);
    EXPECT_TRUE(opened || !tree);
    const auto reason = Own(error);
    return tree ? tree.Get()->Describe() : cf::ToStdString(error);
}

TEST(PropertyList, XMLAndBinaryDescribeTheSameTree)
{
    EXPECT_EQ(Read(kXML), kTree);
    EXPECT_EQ(Read(kBinary), kTree);
}

TEST(PropertyList, CutAnywhereItIsNeverTakenForTheWholeNorReadBeyondItsEnd)
{
    for (const std::string& whole : {kXML, kBinary}) {
        for (size_t length = 0; length < whole.size() - (whole == kXML ? 8 : 0); ++length) {
            EXPECT_NE(Read(whole.substr(0, length)), kTree) << length;
        }
    }
}

TEST(PropertyList, AnyByteOfABinaryListMayBeAnything)
{
    for (size_t at = 8; at < kBinary.size(); ++at) {
        for (const int value : {0x00, 0x0F, 0x5F, 0x6F, 0x7F, 0x80, 0xAF, 0xCF, 0xDF, 0xFF}) {
            std::string changed = kBinary;
            changed[at] = char(value);
            const auto tree = Create(changed);
            if (!tree) continue;
            const auto again = Create(Written(tree.Get(), kCFPropertyListBinaryFormat_v1_0));
            EXPECT_TRUE(again && CFEqual(tree.Get(), again.Get())) << at << " = " << value;
        }
    }
}

TEST(PropertyList, NothingIsLostBetweenReadingAndWriting)
{
    std::vector<cf::Ref<cf::Object>> kinds = {Own(new cf::Array({})), Own(new cf::Dictionary({})),
                                              Own(new cf::UID(7)),    Own(new cf::UID(~uint32_t(0))),
                                              Own(new cf::Data("")),  Own(new cf::Data(std::string("\0\xFF", 2)))};
    for (const CFTypeRef truth : {kCFBooleanTrue, kCFBooleanFalse}) kinds.push_back(cf::Ref<cf::Object>::Share(truth));
    for (int bit = 0; bit < 64; ++bit) {
        for (const uint64_t value : {uint64_t(1) << bit, (uint64_t(1) << bit) - 1, ~(uint64_t(1) << bit)}) {
            kinds.push_back(Own(new cf::Number(int64_t(value))));
            if (value >> 63) kinds.push_back(Own(new cf::Number(value)));
        }
    }
    using Real = std::numeric_limits<double>;
    for (const double value : {0.0, -0.1, 1.0 / 3, 44'100.0, 1e300, Real::denorm_min(), Real::max(), Real::infinity(),
                               -Real::infinity(), Real::quiet_NaN()}) {
        kinds.push_back(Own(new cf::Number(value)));
    }
    for (const char* text : {"", " a ", "\t\r\n", "\x01\x7F", "<&>\"']]>", "&amp;", "\xC3\xA9\xE9\x9F\xB3",
                             "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF", "\xEF\xBF\xBF", "\xEF\xBB\xBF"}) {
        kinds.push_back(Own(new cf::String(text)));
        kinds.push_back(Own(new cf::Dictionary({{text, Own(new cf::String(text))}})));
    }
    for (const double seconds : {-63'113'904'000.0, -3'187'296'000.0, -1.0, 0.0, 86'399.0, 252'423'993'599.0}) {
        kinds.push_back(Own(new cf::Date(seconds)));
    }
    for (const CFPropertyListFormat format : {kCFPropertyListXMLFormat_v1_0, kCFPropertyListBinaryFormat_v1_0}) {
        for (const cf::Ref<cf::Object>& kind : kinds) {
            const bool isUID = kind.Get()->TypeID() == cf::UID::kTypeID;
            if (isUID && format == kCFPropertyListXMLFormat_v1_0) continue;
            const auto tree = Own(new cf::Dictionary({{"inner", Own(new cf::Array({kind, kind}))}, {"outer", kind}}));
            const auto again = Create(Written(tree.Get(), format));
            EXPECT_TRUE(again && CFEqual(tree.Get(), again.Get())) << format << " " << tree.Get()->Describe();
        }
    }
}

TEST(PropertyList, DatesOfAnyKindAreKeptInTheBinaryFormAndXMLRefusesWhatItCannotSay)
{
    for (const double seconds : {0.25, 1e10 + 0.125, 1e300, -1e300, std::numeric_limits<double>::quiet_NaN()}) {
        const auto date = Own(new cf::Date(seconds));
        const auto again = Create(Written(date.Get(), kCFPropertyListBinaryFormat_v1_0));
        EXPECT_TRUE(again && CFEqual(date.Get(), again.Get())) << seconds;
        const bool isAYear = seconds < 1e11 && seconds > -1e10;
        EXPECT_EQ(Written(date.Get(), kCFPropertyListXMLFormat_v1_0).empty(), !isAYear) << seconds;
    }
}

TEST(PropertyList, WhatCouldNotBeReadAgainIsNotWritten)
{
    auto deep = Own(new cf::Array({}));
    for (int level = 1; level < 32; ++level) deep = Own(new cf::Array({deep}));
    const auto deeper = Own(new cf::Array({deep})), longest = Own(new cf::String(std::string(262'144, 'x')));
    const auto longer = Own(new cf::Data(std::string(262'145, 'x')));
    const auto many = Own(new cf::Array(cf::Array::Values(65'536, Own(new cf::Array({})))));
    const auto heavy = Own(new cf::Array({longest, longest, longest, longest, Own(new cf::String("more"))}));
    const auto nul = Own(new cf::String(std::string("a\0b", 3))),
               alien = Own(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR("/"), kCFURLPOSIXPathStyle, true));
    const auto nulKey = Own(new cf::Dictionary({{std::string("a\0b", 3), deep}}));
    for (const CFPropertyListFormat format : {kCFPropertyListXMLFormat_v1_0, kCFPropertyListBinaryFormat_v1_0}) {
        for (const auto& tree : {deep, longest}) EXPECT_TRUE(IsAccepted(Written(tree.Get(), format))) << format;
        for (const auto& tree : {deeper, longer, many, heavy, nul, alien, nulKey}) {
            EXPECT_EQ(Written(tree.Get(), format), "") << format << " " << tree.Get()->TypeID();
        }
    }
}

TEST(PropertyList, ARefusalSaysWhatIsWrongAndWhere)
{
    const std::string whole = Binary({Text("x")});
    const std::pair<std::string, std::string> kFaults[] = {
        {"", "is empty"},
        {std::string(1 << 20, 'x') + "x", "is longer than 1 MiB"},
        {"Enabled = 1", "is neither of the binary form nor proper XML"},
        {whole.substr(0, whole.size() - 1), "is cut, or has a trailer that does not fit it, at byte 13"},
        {Binary({ArrayOf({1})}), "names an object that it does not have, at byte 9"},
        {Binary({Text("x"), ""}).replace(10, 4, BigEndian(18, 4)),  // where the trailer begins
         "has an object outside the file, at byte 10"},
        {NestedBinary(33), "is nested more than 32 deep, at byte 164"},
        {Binary({Counted(0x5, 200)}), "has an object that is longer than the file, at byte 18"},
        {XML("<true/><!ENTITY a 'b'>"), "declares entities or other things of its own, at byte 28"},
        {XML("<true"), "has a tag that is not closed, at byte 21"},
        {XML("<dict><key>a</key><array><true/><string>\xFF</string></array></dict>"),
         "has a text that is not UTF-8, in a > 1"},
        {XML("<dict><key>\x1b[2J</key><string>\xFF</string></dict>"),
         "has a text that is not UTF-8, in \xEF\xBF\xBD[2J"},  // fit for a terminal
    };
    for (const auto& [bytes, sentence] : kFaults) {
        std::string fault;
        EXPECT_FALSE(Create(bytes, &fault)) << sentence;
        EXPECT_EQ(fault, sentence);
    }
}

TEST(PropertyList, AFileIsReadOnlyWhereNobodyElseCouldHaveWrittenIt)
{
    const support::FolderTree tree;
    const std::string path = tree.Path("settings.plist");
    const std::pair<const char*, std::function<void()>> kRefused[] = {
        {"cannot be opened: No such file or directory", [] {}},
        {"is a link", [&] { tree.Link("settings.plist", tree.Write("other", kXML)); }},
        {"is not a regular file", [&] { std::filesystem::create_directory(path); }},
        {"is not a regular file", [&] { mkfifo(path.c_str(), 0600); }},
        {"may be written by other users", [&] { chmod(tree.Write("settings.plist", kXML).c_str(), 0620); }},
        {"may be written by other users", [&] { chmod(tree.Write("settings.plist", kXML).c_str(), 0602); }},
        {"is longer than 1 MiB", [&] { std::filesystem::resize_file(tree.Write("settings.plist", ""), 1'048'577); }},
    };
    for (const auto& [sentence, make] : kRefused) {
        std::filesystem::remove(path);
        make();
        EXPECT_EQ(ReadFile(path), sentence);
    }
    std::filesystem::remove(path);
    tree.Write("settings.plist", "");
    EXPECT_EQ(ReadFile(path), "is empty");
    chmod(tree.Write("settings.plist", kXML).c_str(), 0644);
    EXPECT_EQ(ReadFile(path), kTree);
}

TEST(PropertyList, IsAtMost32Deep)
{
    EXPECT_TRUE(IsAccepted(NestedBinary(32)));
    EXPECT_FALSE(IsAccepted(NestedBinary(33)));
    EXPECT_TRUE(IsAccepted(XML(Repeat(32, "<array>") + Repeat(32, "</array>"))));
    EXPECT_FALSE(IsAccepted(XML(Repeat(33, "<array>") + Repeat(33, "</array>"))));
    EXPECT_FALSE(IsAccepted(XML(Repeat(100'000, "<array>"))));
    EXPECT_FALSE(IsAccepted(Binary({ArrayOf({0})}))) << "an array that holds itself";
}

TEST(PropertyList, HoldsAtMost65536ObjectsCountedAtEachMention)
{
    EXPECT_TRUE(IsAccepted(Doubling(16)));
    EXPECT_FALSE(IsAccepted(Doubling(17)));
    EXPECT_FALSE(IsAccepted(Doubling(32)));
    EXPECT_TRUE(IsAccepted(XML("<array>" + Repeat(65'535, "<true/>") + "</array>")));
    EXPECT_FALSE(IsAccepted(XML("<array>" + Repeat(65'536, "<true/>") + "</array>")));
}

TEST(PropertyList, BoundsStringsEachAndTogetherAndTheFile)
{
    const std::string longest(262'144, 'x');
    EXPECT_TRUE(IsAccepted(Binary({ArrayOf({1, 1, 1, 1}), Text(longest)})));
    EXPECT_FALSE(IsAccepted(Binary({ArrayOf({1, 1, 1, 1, 1}), Text(longest)})));
    EXPECT_FALSE(IsAccepted(Binary({Text(longest + "x")})));
    EXPECT_TRUE(IsAccepted(XML("<string>" + longest + "</string>")));
    EXPECT_FALSE(IsAccepted(XML("<string>" + longest + "x</string>")));
    EXPECT_FALSE(IsAccepted(XML("<string>" + longest + "<!-- -->x</string>")));
    std::string padded = "<?" + std::string(1 << 20, ' ');
    padded.replace((1 << 20) - XML("<true/>").size() - 2, padded.npos, "?>" + XML("<true/>"));
    EXPECT_EQ(padded.size(), size_t(1) << 20);
    EXPECT_TRUE(IsAccepted(padded));
    EXPECT_FALSE(IsAccepted(padded + " "));
}

TEST(PropertyList, ClaimsBeyondTheFileAreRefused)
{
    for (const unsigned char kind : {0x4, 0x5, 0x6, 0xA, 0xC, 0xD}) {
        for (const uint64_t count :
             {uint64_t(1) << 16, uint64_t(1) << 31, uint64_t(1) << 62, uint64_t(1) << 63, ~uint64_t(0)}) {
            EXPECT_FALSE(IsAccepted(Binary({Counted(kind, count)}))) << unsigned(kind) << " x " << count;
        }
    }
    for (const size_t field : {size_t(24), size_t(16), size_t(8)}) {  // objects, outermost, offset of the table
        std::string claims = Binary({Text("x")});
        claims.replace(claims.size() - field, 8, BigEndian(~uint64_t(0), 8));
        EXPECT_FALSE(IsAccepted(claims)) << field;
    }
}

TEST(PropertyList, TextWithANulIsRefusedAndDataMayHoldAnything)
{
    const std::string nul(1, '\0'), entry = "\xD1" + BigEndian(1, 4) + BigEndian(2, 4);
    EXPECT_FALSE(IsAccepted(Binary({entry, Text("a" + nul + "b"), Text("x")})));
    EXPECT_FALSE(IsAccepted(Binary({entry, "\x62" + nul + "a" + nul + nul, Text("x")})));
    EXPECT_EQ(Read(Binary({entry, Text("a"), Text("x")})), "{ a = x; }");
    EXPECT_EQ(Read(Binary({entry, Text("a"), "\x41" + nul})), "{ a = 1 bytes; }");
}

TEST(PropertyList, XMLWithDeclarationsOrAmbiguousMarkupIsRefused)
{
    const std::string plain = XML("<true/>");
    ASSERT_TRUE(IsAccepted("<!DOCTYPE plist>" + plain));
    for (const char* head :
         {"<!DOCTYPE plist [<!ENTITY a \"b\">]>", "<!DOCTYPE plist [ ]>", "<!DOCTYPE plist SYSTEM \">\" [ ]>",
          "<!DOCTYPE plist SYSTEM '>' [<!ENTITY % a SYSTEM 'file:///etc/passwd'>]>", "<!ENTITY a \"b\">",
          "<!ELEMENT plist ANY>", "<!-->", "<!--->", "<?xml", "<!-- ", "<a b=\"", "<!DOCTYPE"}) {
        EXPECT_FALSE(IsAccepted(head + plain)) << head;
    }
    for (const char* content :
         {"<string>&a;</string>", "<string><![CDATA[<array>]]></string>", "<array a=\">\"></array>",
          "<array a='>'></array>", "<true <false/>", "<string>\xC0\x80</string>", "</true>"}) {
        EXPECT_FALSE(IsAccepted(XML(content))) << content;
    }
    EXPECT_FALSE(IsAccepted(XML(std::string("<string>a\0b</string>", 20))));
}

}  // namespace
