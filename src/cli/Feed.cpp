#include "cli/Feed.h"

#include "cli/TapFeed.h"

namespace cli {

std::unique_ptr<Feed> MakeFeed(const FeedWish& wish, FeedSink& sink)
{
    return std::make_unique<TapFeed>(wish, sink);
}

}  // namespace cli
