#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/PropertyList.h"
#include "platform/foundation/PropertyListNodes.h"
#include "platform/foundation/PropertyListScan.h"

#include <bit>

namespace cf {

namespace {

// Seconds since 2001 of the first and the last moment of the years that XML's form of a date has room for.
constexpr double kYear1 = -63'113'904'000.0, kYear10000 = 252'423'993'600.0;

Node Own(plist_t node)
{
    return Node(node, &plist_free);
}

Node MakeNumber(const Number& number)
{
    const Number::Value& value = number.Get();
    if (const double* real = std::get_if<double>(&value)) return Own(plist_new_real(*real));
    if (const int64_t* whole = std::get_if<int64_t>(&value)) return Own(plist_new_uint(static_cast<uint64_t>(*whole)));
    return NodeOfObject(kUnsignedObject + BigEndian(0, 8) + BigEndian(std::get<uint64_t>(value), 8));
}

/// Turns a tree into the library's nodes; null where it holds what no list can.
class Builder {
public:
    explicit Builder(CFPropertyListFormat format) : mFormat(format) {}

    Node Make(CFTypeRef object)
    {
        // The scan of what is written judges the limits; this one keeps a tree from exceeding the stack.
        if (mDepth == kPropertyListMaxDepth) return Own(nullptr);
        ++mDepth;
        Node node = MakeOfKind(object);
        --mDepth;
        return node;
    }

private:
    Node MakeOfKind(CFTypeRef object)
    {
        if (const auto* array = As<Array>(object)) return MakeArray(*array);
        if (const auto* dictionary = As<Dictionary>(object)) return MakeDictionary(*dictionary);
        if (const auto* string = As<String>(object)) return MakeString(string->Text());
        if (const auto* number = As<Number>(object)) return MakeNumber(*number);
        if (const auto* truth = As<Boolean>(object)) return Own(plist_new_bool(truth->Get()));
        if (const auto* data = As<Data>(object)) return Own(plist_new_data(data->Bytes().data(), data->Bytes().size()));
        if (const auto* date = As<Date>(object)) return MakeDate(date->Seconds());
        if (const auto* uid = As<UID>(object)) return Own(plist_new_uid(uid->Get()));
        return Own(nullptr);
    }

    static Node MakeString(const std::string& text)
    {
        return Own(text.find('\0') == text.npos ? plist_new_string(text.c_str()) : nullptr);
    }

    Node MakeDate(double seconds) const
    {
        const bool fits = mFormat == kCFPropertyListBinaryFormat_v1_0 || (seconds >= kYear1 && seconds < kYear10000);
        return fits ? NodeOfObject(kDateObject + BigEndian(std::bit_cast<uint64_t>(seconds), 8)) : Own(nullptr);
    }

    Node MakeArray(const Array& array)
    {
        Node node = Own(plist_new_array());
        for (const Ref<Object>& value : array.Get()) {
            Node item = Make(value.Get());
            if (!item) return item;
            plist_array_append_item(node.get(), item.release());
        }
        return node;
    }

    Node MakeDictionary(const Dictionary& dictionary)
    {
        Node node = Own(plist_new_dict());
        for (const auto& [key, value] : dictionary.Get()) {
            Node item = key.find('\0') == key.npos ? Make(value.Get()) : Own(nullptr);
            if (!item) return item;
            plist_dict_set_item(node.get(), key.c_str(), item.release());
        }
        return node;
    }

    const CFPropertyListFormat mFormat;
    size_t mDepth = 0;
};

}  // namespace

std::vector<uint8_t> PropertyListBytes(CFTypeRef tree, CFPropertyListFormat format)
{
    const bool binary = format == kCFPropertyListBinaryFormat_v1_0;
    const Node root = Builder(format).Make(tree);
    char* bytes = nullptr;
    uint32_t count = 0;
    if (root) (binary ? plist_to_bin : plist_to_xml)(root.get(), &bytes, &count);
    const LibraryText owner(bytes);
    const std::string_view list(bytes, count);
    const bool fits = count > 0 && count <= kPropertyListMaxBytes &&
                      (binary ? FaultOfBinaryList(list) : FaultOfXMLList(list)).empty();
    return fits ? std::vector<uint8_t>(list.begin(), list.end()) : std::vector<uint8_t>();
}

}  // namespace cf
