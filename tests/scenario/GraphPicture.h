// GraphPicture: what a rig went through, as a drawing: for each source how far it was off the moments that the graph
// states, how much sound its ring held for the read head, silent and broken cycles, and what the script did. Why: of a
// fault in time a person understands one look at the whole course, and not a number at its end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace graph {

class Track;
enum class Content;

class Picture {
public:
    /// One more cycle of all sources. Of a long course every other one is forgotten now and then, the faultless first.
    void Add(double seconds, const std::vector<Track>& tracks);

    /// @param trace  the scenario's, a line an event
    void Write(const std::string& path, std::string_view trace) const;

private:
    struct Point {
        double mSeconds;
        double mOff;
        double mHeld;
        Content mContent;
    };

    /// Where a curve is drawn, and what it spans.
    struct Frame {
        double mTop, mLeft, mRight;
        const char* mColour;
        const char* mWhat;
        double mTextTop;
    };

    static std::string Lane(const std::vector<Point>& points, double top, double left, double right);
    static std::string Curve(const std::vector<Point>& points, double Point::*value, const Frame& frame);
    static std::string Events(std::string_view trace, double left, double right, double bottom);

    static void Thin(std::vector<Point>& points);

    std::vector<std::vector<Point>> mLanes;
};

}  // namespace graph
