#include "platform/foundation/CFDictionary.h"

namespace {

/// Made before anything runs, and never destroyed: constants are used until the last line of the process.
union Constant {
    explicit constexpr Constant(bool value) : mBoolean(value) {}
    ~Constant() {}
    cf::Boolean mBoolean;
};

constinit Constant sTrue(true);
constinit Constant sFalse(false);

}  // namespace

const CFBooleanRef kCFBooleanTrue = &sTrue.mBoolean;
const CFBooleanRef kCFBooleanFalse = &sFalse.mBoolean;

bool CFBooleanGetValue(CFBooleanRef boolean)
{
    return boolean->Get();
}
