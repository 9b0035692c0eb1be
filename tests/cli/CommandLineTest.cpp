#include "cli/CommandLine.h"

#include "cli/Commands.h"

#include <gtest/gtest.h>

namespace cli {
namespace {

TEST(CommandLine, AWrongWordIsQuotedWithTheClosestRightOneAndAnExampleOfItsCommand)
{
    CLI::App app("", "corvane");
    Words words;
    AddSoundCommands(app, words);
    AddDeviceCommands(app, words);
    const std::tuple<std::vector<std::string>, const char*, const char*> cases[] = {
        {{"recrod", "x.wav"}, "'recrod'", "record"},
        {{"list", "outputz"}, "'outputz' is no command of corvane list", "outputs"},
        {{"record", "--sorce", "app:music", "x.wav"}, "'--sorce'", "--source"},
        {{"record", "-c2", "--rate=1", "-f", "s16", "a.wav", "b.wav"}, "'b.wav'", "corvane record"},
        {{"show", "a", "b"}, "'b'", "corvane show Podcast"},
        {{"rename", "a"}, "NAME", "corvane rename Podcast Interview"},
        {{"record", "-d"}, "--duration", "TIME"},
        {{"list"}, "apps, outputs", "corvane list apps"},
    };
    for (const auto& [line, quoted, help] : cases) {
        const std::string text = DescribeUsageError(app, line, "");
        EXPECT_NE(text.find(quoted), std::string::npos) << text;
        EXPECT_NE(text.find(help), std::string::npos) << text;
    }
}

}  // namespace
}  // namespace cli
