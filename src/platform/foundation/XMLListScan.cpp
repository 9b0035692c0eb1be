#include "platform/foundation/PropertyListScan.h"

#include <algorithm>

namespace cf {

namespace {

class XMLScan {
public:
    explicit XMLScan(std::string_view text) : mText(text), mRest(text) {}

    ScanFault Run()
    {
        if (const size_t nul = mText.find('\0'); nul != mText.npos) return {kTextHasNul, nul};
        while (!mFault.mWhat && !mRest.empty()) {
            const size_t text = std::min(mRest.find('<'), mRest.size());
            mRest.remove_prefix(text);
            mTextBytes += text;
            if (mTextBytes > kPropertyListMaxStringBytes) return {kTextTooLong, Position()};
            TakeMarkup();
        }
        return mFault;
    }

private:
    size_t Position() const { return mText.size() - mRest.size(); }

    bool TakeMarkup()
    {
        if (mRest.empty()) return true;
        if (mRest.starts_with("<?")) return SkipTo("?>", 2);
        // "<!-->" is a whole comment to one reader and the start of one to the next.
        const bool ambiguous = mRest.starts_with("<!-->") || mRest.starts_with("<!--->");
        if (ambiguous) return mFault.Set("has a comment that readers take for different things", Position());
        return mRest.starts_with("<!--") ? SkipTo("-->", 4) : TakeTag();
    }

    bool TakeTag()
    {
        const size_t start = Position(), end = mRest.find('>');
        const std::string_view tag = mRest.substr(1, end == mRest.npos ? end : end - 1);
        if (end == mRest.npos || HasOpenQuote(tag) || tag.find('<') != tag.npos) {
            return mFault.Set("has a tag that is not closed", start);
        }
        mRest.remove_prefix(end + 1);
        if (!tag.starts_with('!')) return CountElement(tag, start);
        return IsPlainDocumentType(tag) || mFault.Set("declares entities or other things of its own", start);
    }

    bool SkipTo(std::string_view end, size_t from)
    {
        const size_t found = mRest.find(end, from);
        if (found == mRest.npos) return mFault.Set("has a comment or an instruction without an end", Position());
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

    bool CountElement(std::string_view tag, size_t start)
    {
        mTextBytes = 0;
        if (tag.starts_with('/')) {
            if (mDepth > 0) --mDepth;
            return true;
        }
        const size_t depth = mDepth + 1;
        if (!tag.ends_with('/')) mDepth = depth;
        // The document element "plist" is no object of the tree.
        if (depth > kPropertyListMaxDepth + 1) return mFault.Set(kTooDeep, start);
        return ++mElements <= kPropertyListMaxObjects + 1 || mFault.Set(kTooManyObjects, start);
    }

    const std::string_view mText;
    std::string_view mRest;
    ScanFault mFault;
    size_t mTextBytes = 0;  // since the last element began or ended
    size_t mDepth = 0;
    size_t mElements = 0;
};

}  // namespace

std::string FaultOfXMLList(std::string_view text)
{
    return XMLScan(text).Run().Sentence();
}

}  // namespace cf
