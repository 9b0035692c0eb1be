#include "platform/foundation/PropertyList.h"

#include "platform/foundation/CFDictionary.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

/// What the bytes describe, or "" for none. They are copied to where the byte after the last may not be read.
std::string Read(const std::string& bytes)
{
    const std::vector<char> copy(bytes.begin(), bytes.end());
    const auto list = cf::Ref<cf::Object>::Adopt(cf::CreatePropertyList(copy.data(), copy.size()));
    return list ? list.Get()->Describe() : "";
}

bool IsAccepted(const std::string& bytes)
{
    return cf::Ref<cf::Object>::Adopt(cf::CreatePropertyList(bytes.data(), bytes.size())).operator bool();
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
        "<key>b</key><string>1 &lt; 2 \xC3\xA9</string><!-- <array> --><key>c</key><data>AAAA</data></dict>");
const std::string kBinary = Binary({std::string("\xD3", 1) + BigEndian(1, 4) + BigEndian(3, 4) + BigEndian(9, 4) +
                                        BigEndian(2, 4) + BigEndian(4, 4) + BigEndian(10, 4),
                                    Text("a"), ArrayOf({5, 6, 7, 8}), Text("b"),
                                    std::string("\x67\0"
                                                "1\0 \0<\0 \0"
                                                "2\0 \0\xE9",
                                                15),
                                    "\x13" + BigEndian(uint64_t(-5), 8), "\x23" + BigEndian(0x3FE0000000000000, 8),
                                    "\x09", "\x08", Text("c"), std::string("\x43\0\0\0", 4)});
const std::string kTree = "{ a = (-5, 0.5, true, false); b = 1 < 2 \xC3\xA9; c = 3 bytes; }";

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
            Read(changed);
        }
    }
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
