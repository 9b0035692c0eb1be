#include "platform/foundation/PropertyListScan.h"

#include <algorithm>

namespace cf {

namespace {

class XMLScan {
public:
    explicit XMLScan(std::string_view text) : mRest(text) {}

    bool Run()
    {
        if (mRest.find('\0') != mRest.npos) return false;
        while (!mRest.empty()) {
            const size_t text = std::min(mRest.find('<'), mRest.size());
            mRest.remove_prefix(text);
            mTextBytes += text;
            if (mTextBytes > kPropertyListMaxStringBytes || !TakeMarkup()) return false;
        }
        return true;
    }

private:
    bool TakeMarkup()
    {
        if (mRest.empty()) return true;
        if (mRest.starts_with("<?")) return SkipTo("?>", 2);
        // "<!-->" is a whole comment to one reader and the start of one to the next.
        if (mRest.starts_with("<!-->") || mRest.starts_with("<!--->")) return false;
        if (mRest.starts_with("<!--")) return SkipTo("-->", 4);
        const size_t end = mRest.find('>');
        if (end == mRest.npos) return false;
        const std::string_view tag = mRest.substr(1, end - 1);
        mRest.remove_prefix(end + 1);
        if (HasOpenQuote(tag) || tag.find('<') != tag.npos) return false;
        return tag.starts_with('!') ? IsPlainDocumentType(tag) : CountElement(tag);
    }

    bool SkipTo(std::string_view end, size_t from)
    {
        const size_t found = mRest.find(end, from);
        if (found == mRest.npos) return false;
        mRest.remove_prefix(found + end.size());
        return true;
    }

    static bool HasOpenQuote(std::string_view tag)
    {
        char open = 0;
        for (const char character : tag) {
            if (open ? character == open : character == '"' || character == '\'') open = open ? 0 : character;
        }
        return open != 0;
    }

    // Entities are declared in a subset in brackets, which no property list has a use for.
    static bool IsPlainDocumentType(std::string_view tag)
    {
        return tag.starts_with("!DOCTYPE") && tag.find('[') == tag.npos;
    }

    bool CountElement(std::string_view tag)
    {
        mTextBytes = 0;
        if (tag.starts_with('/')) {
            if (mDepth > 0) --mDepth;
            return true;
        }
        const size_t depth = mDepth + 1;
        if (!tag.ends_with('/')) mDepth = depth;
        // The document element "plist" is no object of the tree.
        return depth <= kPropertyListMaxDepth + 1 && ++mElements <= kPropertyListMaxObjects + 1;
    }

    std::string_view mRest;
    size_t mTextBytes = 0;  // since the last element began or ended
    size_t mDepth = 0;
    size_t mElements = 0;
};

}  // namespace

bool XMLListIsWithinLimits(std::string_view text)
{
    return XMLScan(text).Run();
}

}  // namespace cf
