#include "cli/Levels.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace cli {

double DecibelsOf(float level)
{
    return level > 0 ? 20 * std::log10(double(level)) : -std::numeric_limits<double>::infinity();
}

std::string LevelText(float level)
{
    constexpr double kLeastWithTenths = -99.9;
    const double decibels = std::min(DecibelsOf(level), 999.0);
    if (decibels < kLeastWithTenths) return fmt::format("{:.0f}", decibels);
    return fmt::format("{:.1f}", std::round(decibels * 10) / 10 + 0.0);  // the sum makes -0.0 positive
}

std::string LevelBar(float level, size_t cells)
{
    constexpr double kFloorDB = -60;
    const double part = std::clamp((DecibelsOf(level) - kFloorDB) / -kFloorDB, 0.0, 1.0);
    const size_t filled = size_t(std::lround(part * double(cells)));
    return std::string(filled, '#') + std::string(cells - filled, '.');
}

void RaisePeaks(std::vector<float>& peaks, const std::vector<float>& by)
{
    peaks.resize(std::max(peaks.size(), by.size()));
    for (size_t channel = 0; channel < by.size(); ++channel) peaks[channel] = std::max(peaks[channel], by[channel]);
}

}  // namespace cli
