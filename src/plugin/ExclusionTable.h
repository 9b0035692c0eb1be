// ExclusionTable: programs that get no plug-in, since they open audio without ever recording.
#pragma once

#include <array>

namespace plugin {

/// The first two are paths of executables, the others identifiers of bundles.
inline constexpr std::array<const char*, 49> kExcludedPrograms{
    "/usr/sbin/UserEventAgent",
    "/usr/libexec/UserEventAgent",
    "com.apple.loginwindow",
    "com.apple.windowserver",
    "com.apple.dock",
    "com.apple.finder",
    "com.apple.bezelservices",
    "com.apple.spotlight",
    "com.apple.systemuiserver",
    "com.apple.softwareupdate",
    "com.apple.calculator",
    "com.apple.propertylisteditor",
    "com.apple.packagemaker",
    "com.apple.preview",
    "com.apple.ical",
    "com.apple.ichatagent",
    "com.apple.terminal",
    "com.apple.installer",
    "com.apple.mail",
    "com.apple.addressbook",
    "com.apple.dvdplayer",
    "com.apple.fontbook",
    "com.apple.frontrow",
    "com.apple.Image_Capture",
    "com.apple.isync",
    "com.apple.backup.launcher",
    "com.apple.activitymonitor",
    "com.apple.airport.airportutility",
    "com.apple.BluetoothFileExchange",
    "com.apple.bootcampassistant",
    "com.apple.ColorSyncUtility",
    "com.apple.console",
    "com.apple.diskutility",
    // Our own, which must not hear themselves.
    "com.ostrel.tollery",
    "com.ostrel.tollery.agent",
    "com.ostrel.updater",
    "com.ostrel.installer",
    "com.ostrel.crashreporter",
    "com.ostrel.registration",
    "com.ostrel.avcapture.player",
    "com.ostrel.avcapture.converter",
    "com.ostrel.screensaver",
    "com.ostrel.games.marshlight",
    "com.ostrel.games.tidewrack",
    "com.ostrel.games.hollowmere",
    "com.ostrel.games.lanternfall",
    "com.ostrel.games.sparrowgate",
    "com.ostrel.games.ironbriar",
    "com.ostrel.games.longshoal",
};

}  // namespace plugin
