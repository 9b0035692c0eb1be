#include "scenario/GraphPicture.h"

#include "scenario/GraphRig.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace graph {

namespace {

constexpr size_t kMostPoints = 1 << 14;
constexpr double kWidth = 1400, kLane = 150, kMargin = 10;

double Across(double seconds, double left, double right)
{
    return kMargin + (seconds - left) / std::max(1e-9, right - left) * (kWidth - 2 * kMargin);
}

}  // namespace

void Picture::Add(double seconds, const std::vector<Track>& tracks)
{
    mLanes.resize(tracks.size());
    for (size_t i = 0; i < tracks.size(); ++i) {
        if (mLanes[i].size() >= kMostPoints) Thin(mLanes[i]);
        mLanes[i].push_back({seconds, tracks[i].mOff, tracks[i].mHeld, tracks[i].mLast});
    }
}

void Picture::Thin(std::vector<Point>& points)
{
    for (size_t i = 0; 2 * i + 1 < points.size(); ++i)
        points[i] = points[2 * i].mContent != Content::Sound ? points[2 * i] : points[2 * i + 1];
    points.resize(points.size() / 2);
}

void Picture::Write(const std::string& path, std::string_view trace) const
{
    if (mLanes.empty() || mLanes[0].empty()) return;
    const double left = mLanes[0].front().mSeconds, right = mLanes[0].back().mSeconds;
    const double height = kLane * static_cast<double>(mLanes.size()) + 2 * kMargin;
    std::ofstream file(path);
    file << fmt::format(R"(<svg xmlns="http://www.w3.org/2000/svg" width="{}" height="{}" font-size="11">)", kWidth,
                        height)
         << R"(<rect width="100%" height="100%" fill="white"/>)";
    for (size_t i = 0; i < mLanes.size(); ++i)
        file << Lane(mLanes[i], kMargin + kLane * static_cast<double>(i), left, right);
    file << Events(trace, left, right, height) << "</svg>\n";
}

/// The curves of one source; where it is silent, or sound only in part, the lane has a colour.
std::string Picture::Lane(const std::vector<Point>& points, double top, double left, double right)
{
    std::string out = R"(<g stroke="none">)";
    for (size_t i = 0; i < points.size(); ++i) {
        const Point& point = points[i];
        if (point.mContent == Content::Sound) continue;
        const double x = Across(point.mSeconds, left, right);
        const double next = i + 1 < points.size() ? Across(points[i + 1].mSeconds, left, right) : x + 1;
        out += fmt::format(R"(<rect x="{:.2f}" y="{}" width="{:.2f}" height="{}" fill="{}"/>)", x, top, next - x,
                           kLane - 4, point.mContent == Content::Nothing ? "#ddd" : "#f99");
    }
    return out + "</g>" +
           Curve(points, &Point::mHeld, {top, left, right, "#090", "frames ahead in the ring", top + 24}) +
           Curve(points, &Point::mOff, {top, left, right, "black", "frames off", top + 12});
}

std::string Picture::Curve(const std::vector<Point>& points, double Point::*value, const Frame& frame)
{
    const auto [least, most] = std::ranges::minmax(points, {}, value);
    const double low = least.*value, span = std::max(1e-3, most.*value - low);
    std::string out = fmt::format(R"(<text x="{}" y="{}" fill="{}">{:.3f} .. {:.3f} {}</text>)", kMargin,
                                  frame.mTextTop, frame.mColour, low, low + span, frame.mWhat);
    out += fmt::format(R"(<polyline fill="none" stroke="{}" points=")", frame.mColour);
    for (const Point& point : points)
        out += fmt::format("{:.2f},{:.2f} ", Across(point.mSeconds, frame.mLeft, frame.mRight),
                           frame.mTop + kLane - 20 - (point.*value - low) / span * (kLane - 40));
    return out + R"("/>)";
}

std::string Picture::Events(std::string_view trace, double left, double right, double bottom)
{
    std::string out;
    for (double y = kMargin + 26; !trace.empty(); y += 12) {
        const std::string line(trace.substr(0, trace.find('\n')));
        trace.remove_prefix(std::min(trace.size(), line.size() + 1));
        const double x = Across(std::stod(line), left, right);
        out += fmt::format(R"(<line x1="{0:.2f}" x2="{0:.2f}" y1="0" y2="{1}" stroke="#06c"/>)", x, bottom);
        out += fmt::format(R"(<text x="{:.2f}" y="{}" fill="#06c">{}</text>)", x + 3, y, line);
    }
    return out;
}

}  // namespace graph
