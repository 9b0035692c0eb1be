#include "cli/Devices.h"
#include "cli/Sources.h"

#include <gtest/gtest.h>

#include <array>

namespace cli {
namespace {

using platform::process::Application;

Application Named(pid_t pid, const char* name, const char* serverName, const char* identifier, const char* executable)
{
    return {.mPID = pid,
            .mName = name,
            .mIdentifier = identifier,
            .mExecutable = executable,
            .mPlaying = true,
            .mHelpers = {pid + 1},
            .mServerName = serverName};
}

std::vector<Application> Desktop()
{
    return {Named(100, "Firefox ESR", "Firefox", "org.mozilla.firefox", "/usr/bin/firefox-esr"),
            Named(200, "mpv", "mpv", "mpv", "/usr/bin/mpv"),
            Named(210, "mpv", "mpv", "mpv-second", "/opt/mpv"),
            Named(300, "My Game", "", "game", "/opt/runner"),
            Named(310, "My Game", "", "game", "/opt/runner"),
            Named(400, "H\u00F6rspiel \u0391\u03A3", "", "h", "/opt/h"),
            Named(500, "VLC media player", "VLC", "org.videolan.vlc", "/usr/bin/vlc"),
            Named(510, "VLC", "VLC", "vlc-snap", "/snap/vlc-bin")};
}

bool OnlyProcess7(pid_t pid)
{
    return pid == 7;
}

Resolution ResolveText(const std::string& text)
{
    Source source;
    EXPECT_EQ(ParseSource(text, source), "");
    return Resolve(source, Desktop(), OnlyProcess7);
}

TEST(Sources, AreFoundByTheWholeOfAnyNameThenByAUniqueBeginningThenByAUniquePart)
{
    const std::vector<pid_t> firefox = {100, 101}, game = {300, 301, 310, 311}, umlaut = {400, 401}, vlc = {510, 511};
    const std::pair<const char*, std::vector<pid_t>> cases[] = {
        {"app:Firefox ESR", firefox},
        {"app:firefox", firefox},
        {"app:FIREFOX-ESR", firefox},
        {"app:fire", firefox},
        {"app:fox e", firefox},
        {"app-inverse:firefox", firefox},
        {"id:org.mozilla.firefox", firefox},
        {"path:/usr/bin/firefox-esr", firefox},
        {"app:game", game},
        {"app:H\u00D6RSPIEL \u03B1\u03C2", umlaut},
        {"app:vlc", vlc},
        {"path:/opt/mpv", {210, 211}},
        {"pid:7", {7}},
        {"7", {7}},
        {"system", {}},
        {"device:speakers", {}},
    };
    for (const auto& [text, processes] : cases) {
        const Resolution resolution = ResolveText(text);
        EXPECT_EQ(resolution.mError, "") << text;
        EXPECT_EQ(resolution.mProcesses, processes) << text;
    }
}

TEST(Sources, AnApplicationIsFoundAgainAfterARestartByWhatStaysTheSame)
{
    const Resolution resolution = ResolveText("app:game");
    ASSERT_TRUE(resolution.mIdentity);
    EXPECT_EQ(ProcessesOf(*resolution.mIdentity, {Named(900, "My Game", "", "game", "/opt/new"),
                                                  Named(910, "My Game", "", "other", "/opt/runner")}),
              (std::vector<pid_t>{900, 901}));
    EXPECT_FALSE(ResolveText("pid:7").mIdentity);
}

TEST(Sources, AMissSaysWhatPlaysWithTheClosestNameFirst)
{
    EXPECT_TRUE(ResolveText("app:mvp").mError.starts_with("No application matches 'mvp'. Playing now: mpv, "))
        << ResolveText("app:mvp").mError;
    EXPECT_NE(ResolveText("pid:8").mError.find("number 8"), std::string::npos);
    EXPECT_NE(ResolveText("id:mozilla").mError.find("now: org.mozilla.firefox"), std::string::npos);
}

TEST(Sources, ANameThatDifferentApplicationsShareIsRefusedAndTellsThemApart)
{
    for (const auto& [text, names] :
         {std::pair{"app:mpv", std::array{"pid:200", "pid:210"}}, std::pair{"app:m", std::array{"My Game", "mpv"}}}) {
        const Resolution resolution = ResolveText(text);
        EXPECT_TRUE(resolution.mProcesses.empty()) << text;
        for (const char* name : names) EXPECT_NE(resolution.mError.find(name), std::string::npos) << resolution.mError;
    }
}

TEST(Sources, DevicesAreFoundLikeApplications)
{
    const std::vector<Device> devices = {{"alsa.usb", "Room Mic"},
                                         {"alsa.pci", "Line"},
                                         {"twin", "a"},
                                         {"twin", "b"},
                                         {"line2", "Line Two", 0, 0, true}};
    for (const auto& [name, uid] : {std::pair{"room mic", "alsa.usb"},
                                    {"ALSA.PCI", "alsa.pci"},
                                    {"LINE", "alsa.pci"},
                                    {"mic", "alsa.usb"},
                                    {"default", "line2"},
                                    {"twin", ""},
                                    {"alsa", ""},
                                    {"", ""}}) {
        const DeviceMatch match = MatchDevice(devices, Side::Input, name);
        EXPECT_EQ(match.mDevice ? match.mDevice->mUID : "", uid) << name;
        EXPECT_EQ(match.mError.empty(), match.mDevice != nullptr) << name;
    }
}

TEST(Sources, AWrongWordIsQuotedWithAnExampleOfARightOne)
{
    for (const char* text : {"firefox", "app:", "application:firefox", ":", "", "pid:0", "pid:-4", "pid:12x",
                             "pid:99999999999999", "path:mpv"}) {
        Source source;
        const std::string wrong = ParseSource(text, source);
        EXPECT_NE(wrong.find("'" + std::string(text) + "'"), std::string::npos) << text << ": " << wrong;
        EXPECT_NE(wrong.find("for example"), std::string::npos) << text << ": " << wrong;
    }
}

}  // namespace
}  // namespace cli
