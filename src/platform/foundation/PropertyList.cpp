#include "platform/foundation/PropertyList.h"

#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/PropertyListScan.h"

#include <plist/plist.h>

#include <cstdlib>
#include <memory>

namespace cf {

namespace {

using Node = std::unique_ptr<void, decltype(&plist_free)>;
using Text = std::unique_ptr<char, decltype(&std::free)>;

Ref<Object> Convert(plist_t node);

Node Parse(std::string_view bytes)
{
    const bool binary = bytes.starts_with(kBinaryListMagic);
    plist_t root = nullptr;
    if (binary ? !BinaryListIsWithinLimits(bytes) : !XMLListIsWithinLimits(bytes)) return Node(root, &plist_free);
    const auto parse = binary ? &plist_from_bin : &plist_from_xml;
    parse(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    return Node(root, &plist_free);
}

Ref<Object> ConvertString(plist_t node)
{
    const char* text = plist_get_string_ptr(node, nullptr);
    return Ref<Object>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
}

Ref<Object> ConvertWhole(plist_t node)
{
    uint64_t value = 0;
    plist_get_uint_val(node, &value);  // negative numbers come in two's complement
    return Ref<Object>::Adopt(new Number(static_cast<int64_t>(value)));
}

Ref<Object> ConvertReal(plist_t node)
{
    double value = 0;
    plist_get_real_val(node, &value);
    return Ref<Object>::Adopt(new Number(value));
}

Ref<Object> ConvertTruth(plist_t node)
{
    uint8_t value = 0;
    plist_get_bool_val(node, &value);
    return Ref<Object>::Adopt(new Number(int64_t(value != 0)));
}

Ref<Object> ConvertArray(plist_t node)
{
    plist_array_iter iterator = nullptr;
    plist_array_new_iter(node, &iterator);
    const Text owner(static_cast<char*>(iterator), &std::free);
    Array::Values values;
    for (;;) {
        plist_t item = nullptr;
        plist_array_next_item(node, iterator, &item);
        if (!item) return Ref<Object>::Adopt(new Array(std::move(values)));
        if (Ref<Object> value = Convert(item)) values.push_back(std::move(value));
    }
}

Ref<Object> ConvertDictionary(plist_t node)
{
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    const Text owner(static_cast<char*>(iterator), &std::free);
    Dictionary::Entries entries;
    for (;;) {
        char* name = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator, &name, &item);
        const Text key(name, &std::free);
        if (!item) return Ref<Object>::Adopt(new Dictionary(std::move(entries)));
        const auto text =
            Ref<String>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, name, kCFStringEncodingUTF8));
        Ref<Object> value = Convert(item);
        if (text && value) entries.emplace(text.Get()->Text(), std::move(value));
    }
}

Ref<Object> Convert(plist_t node)
{
    switch (plist_get_node_type(node)) {
        case PLIST_STRING:
            return ConvertString(node);
        case PLIST_UINT:
            return ConvertWhole(node);
        case PLIST_REAL:
            return ConvertReal(node);
        case PLIST_BOOLEAN:
            return ConvertTruth(node);
        case PLIST_ARRAY:
            return ConvertArray(node);
        case PLIST_DICT:
            return ConvertDictionary(node);
        default:
            return {};
    }
}

}  // namespace

CFTypeRef CreatePropertyList(const void* bytes, size_t count)
{
    if (count > kPropertyListMaxBytes) return nullptr;
    const Node root = Parse({static_cast<const char*>(bytes), count});
    return root ? Convert(root.get()).Detach() : nullptr;
}

}  // namespace cf
