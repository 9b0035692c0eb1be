#include "platform/foundation/PropertyList.h"

#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/PropertyListNodes.h"
#include "platform/foundation/PropertyListScan.h"
#include "platform/process/PlainText.h"

#include <bit>

namespace cf {

namespace {

Ref<Object> Adopt(CFTypeRef object)
{
    return Ref<Object>::Adopt(object);
}

Ref<Object> ConvertWhole(plist_t node)
{
    uint64_t value = 0;
    plist_get_uint_val(node, &value);  // negative numbers come in two's complement
    const auto whole = static_cast<int64_t>(value);
    const bool large = whole < 0 && ObjectBytes(node).starts_with(kUnsignedObject);
    return Adopt(large ? new Number(value) : new Number(whole));
}

Ref<Object> ConvertReal(plist_t node)
{
    double value = 0;
    plist_get_real_val(node, &value);
    return Adopt(new Number(value));
}

Ref<Object> ConvertTruth(plist_t node)
{
    uint8_t value = 0;
    plist_get_bool_val(node, &value);
    return Ref<Object>::Share(value ? kCFBooleanTrue : kCFBooleanFalse);
}

Ref<Object> ConvertData(plist_t node)
{
    uint64_t count = 0;
    const char* bytes = plist_get_data_ptr(node, &count);
    return Adopt(new Data(bytes ? std::string(bytes, count) : std::string()));
}

Ref<Object> ConvertDate(plist_t node)
{
    return Adopt(new Date(std::bit_cast<double>(LastNumber(ObjectBytes(node)))));
}

Ref<Object> ConvertUID(plist_t node)
{
    uint64_t value = 0;
    plist_get_uid_val(node, &value);
    return Adopt(new UID(value));
}

/// Turns nodes into objects. A node that cannot be turned ends it, and its place in the tree is noted.
class Converter {
public:
    Ref<Object> Convert(plist_t node)
    {
        switch (plist_get_node_type(node)) {
            case PLIST_STRING:
                return ConvertString(plist_get_string_ptr(node, nullptr));
            case PLIST_UINT:
                return ConvertWhole(node);
            case PLIST_REAL:
                return ConvertReal(node);
            case PLIST_BOOLEAN:
                return ConvertTruth(node);
            case PLIST_DATA:
                return ConvertData(node);
            case PLIST_DATE:
                return ConvertDate(node);
            case PLIST_UID:
                return ConvertUID(node);
            case PLIST_ARRAY:
                return ConvertArray(node);
            case PLIST_DICT:
                return ConvertDictionary(node);
            default:
                return Fail("has an object of no known kind");
        }
    }

    std::string Fault() const { return mFault + (mPlace.empty() ? "" : ", in" + mPlace); }

private:
    Ref<Object> Fail(const char* what)
    {
        mFault = what;
        return {};
    }

    Ref<Object> ConvertString(const char* text)
    {
        const CFStringRef string = CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
        return string ? Adopt(string) : Fail("has a text that is not UTF-8");
    }

    Ref<Object> ConvertArray(plist_t node)
    {
        plist_array_iter iterator = nullptr;
        plist_array_new_iter(node, &iterator);
        const LibraryText owner(static_cast<char*>(iterator));
        Array::Values values;
        for (;;) {
            plist_t item = nullptr;
            plist_array_next_item(node, iterator, &item);
            if (!item) return Adopt(new Array(std::move(values)));
            Ref<Object> value = Convert(item);
            if (!value) return FailIn(std::to_string(values.size()));
            values.push_back(std::move(value));
        }
    }

    Ref<Object> ConvertDictionary(plist_t node)
    {
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        const LibraryText owner(static_cast<char*>(iterator));
        Dictionary::Entries entries;
        for (;;) {
            char* name = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, iterator, &name, &item);
            const LibraryText key(name);
            if (!item) return Adopt(new Dictionary(std::move(entries)));
            Ref<Object> value = ConvertString(name) ? Convert(item) : Ref<Object>();
            if (!value) return FailIn(name);
            entries.insert_or_assign(name, std::move(value));
        }
    }

    /// Puts a key or an index before the place that is noted so far.
    Ref<Object> FailIn(const std::string& step)
    {
        mPlace = " " + step + (mPlace.empty() ? "" : " >" + mPlace);
        return {};
    }

    std::string mFault;
    std::string mPlace;
};

/// The library's tree, or null with what is wrong.
Node Parse(std::string_view bytes, std::string& fault)
{
    const bool binary = bytes.starts_with(kBinaryListMagic);
    plist_t root = nullptr;
    fault = binary ? FaultOfBinaryList(bytes) : FaultOfXMLList(bytes);
    if (!fault.empty()) return Node(root, &plist_free);
    const auto parse = binary ? &plist_from_bin : &plist_from_xml;
    parse(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    if (!root) fault = binary ? "has an object that cannot be read" : "is neither of the binary form nor proper XML";
    return Node(root, &plist_free);
}

Ref<Object> Read(std::string_view bytes, std::string& fault)
{
    if (bytes.empty()) fault = "is empty";
    if (bytes.size() > kPropertyListMaxBytes) fault = "is longer than 1 MiB";
    if (!fault.empty()) return {};
    const Node root = Parse(bytes, fault);
    if (!root) return {};
    Converter converter;
    Ref<Object> tree = converter.Convert(root.get());
    if (!tree) fault = converter.Fault();
    return tree;
}

}  // namespace

CFTypeRef CreatePropertyList(const void* bytes, size_t count, std::string* error)
{
    std::string fault;
    Ref<Object> tree = Read({static_cast<const char*>(bytes), count}, fault);
    if (!tree && error) *error = platform::process::PlainText(fault);
    return tree.Detach();
}

}  // namespace cf
