#include "cli/Sources.h"

#include <gtest/gtest.h>

namespace cli {
namespace {

using platform::process::Application;
using platform::process::IdentifierSource;

std::vector<Application> Desktop()
{
    return {{100,
             0,
             "Firefox",
             "org.mozilla.firefox",
             IdentifierSource::DesktopEntry,
             "/usr/bin/firefox",
             false,
             true,
             {101, 102}},
            {200, 0, "mpv", "mpv", IdentifierSource::Executable, "/usr/bin/mpv", false, true, {}},
            {201, 0, "mpv", "mpv-second", IdentifierSource::Executable, "/opt/mpv", false, false, {}}};
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

TEST(Sources, EachKindFindsItsApplicationWithTheHelpersThatPlayForIt)
{
    const std::vector<pid_t> firefox = {100, 101, 102};
    EXPECT_EQ(ResolveText("app:firefox").mProcesses, firefox);
    EXPECT_EQ(ResolveText("id:org.mozilla.firefox").mProcesses, firefox);
    EXPECT_EQ(ResolveText("path:/usr/bin/firefox").mProcesses, firefox);
    EXPECT_EQ(ResolveText("pid:7").mProcesses, std::vector<pid_t>{7});
    EXPECT_TRUE(ResolveText("system").mProcesses.empty());
    EXPECT_TRUE(ResolveText("system").mError.empty());
}

TEST(Sources, AMissSaysWhatIsThereWithTheClosestNameFirst)
{
    const std::string error = ResolveText("app:firefix").mError;
    EXPECT_NE(error.find("'app:firefix' matches no application"), std::string::npos) << error;
    EXPECT_LT(error.find("app:Firefox"), error.find("app:mpv")) << error;
    EXPECT_NE(ResolveText("pid:8").mError.find("no process 8"), std::string::npos);
    EXPECT_NE(ResolveText("id:mozilla").mError.find("id:org.mozilla.firefox"), std::string::npos);
}

TEST(Sources, ANameThatSeveralApplicationsShareIsRefusedAndTellsThemApart)
{
    const Resolution resolution = ResolveText("app:mpv");
    EXPECT_TRUE(resolution.mProcesses.empty());
    EXPECT_NE(resolution.mError.find("pid:200"), std::string::npos);
    EXPECT_NE(resolution.mError.find("pid:201"), std::string::npos);
}

TEST(Sources, AWrongWordIsQuotedWithAnExampleOfARightOne)
{
    for (const char* text :
         {"firefox", "app:", "application:firefox", ":", "", "pid:0", "pid:-4", "pid:12x", "pid:99999999999999"}) {
        Source source;
        const std::string wrong = ParseSource(text, source);
        EXPECT_NE(wrong.find("'" + std::string(text) + "'"), std::string::npos) << text << ": " << wrong;
        EXPECT_NE(wrong.find("for example"), std::string::npos) << text << ": " << wrong;
    }
}

}  // namespace
}  // namespace cli
