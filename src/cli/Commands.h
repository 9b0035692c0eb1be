// Commands: the words of every command, and what they call.
#pragma once

#include "cli/DeviceWords.h"
#include "cli/RecordCommand.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace cli {

/// Where the words of the command line go; the command that was written sets the result.
struct Words {
    bool mJSON = false;
    bool mAll = false;
    bool mClear = false;
    RecordOptions mRecord;
    DeviceOptions mDevice;
    std::string mName, mOther;
    std::vector<std::string> mNames;
    int mResult = 0;
};

/// list and record.
void AddSoundCommands(CLI::App& app, Words& words);
/// Virtual devices: add, show, set, rename, remove, enable, disable, route, doctor, watch. After AddSoundCommands.
void AddDeviceCommands(CLI::App& app, Words& words);

}  // namespace cli
