// Levels: peaks as decibels, text and bars.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

/// Decibels below full scale; silence is -inf.
double DecibelsOf(float level);

/// "-12.3", "0.0" or "-inf": at most five characters.
std::string LevelText(float level);

/// A meter of `cells` characters, from -60 dB to full scale.
std::string LevelBar(float level, size_t cells);

/// Makes each of `peaks` at least as great as its counterpart in `by`; the longer list gives the length.
void RaisePeaks(std::vector<float>& peaks, const std::vector<float>& by);

}  // namespace cli
