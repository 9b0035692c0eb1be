#include "cli/Feed.h"

#include "cli/GraphFeed.h"
#include "cli/TapFeed.h"

namespace cli {

std::unique_ptr<Feed> MakeFeed(const FeedWish& wish, FeedSink& sink)
{
    const bool isTap = wish.mTracks.size() == 1 && !wish.mTracks.front().mIsInput && wish.mChannels == 2;
    if (isTap) return std::make_unique<TapFeed>(wish, sink);
    return std::make_unique<GraphFeed>(wish, sink);
}

}  // namespace cli
