// RouteCommand: which output an application's own sound goes to while it records from a virtual device.
// Every call returns an exit code, and has told a person what is wrong where that is not 0.
#pragma once

#include <string>

namespace cli {

int ListRoutes(bool json);
/// @param output  empty: the application is routed no more
int RouteApplication(const std::string& application, const std::string& output);

}  // namespace cli
