#include "record/RecordingFile.h"

#include "record/WavFile.h"

#include "support/FolderTree.h"
#include "support/Recording.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>

#include <sys/resource.h>
#include <unistd.h>

namespace record {
namespace {

namespace fs = std::filesystem;
using support::ReadRecording;
using support::Recording;

/// A file of `channels` at 48 kHz.
FileSettings Settings(const std::string& path, SampleFormat format = SampleFormat::Float32, bool replace = false)
{
    return {.mPath = path, .mFormat = format, .mReplace = replace};
}

class RecordingFileTest : public ::testing::Test {
protected:
    std::string Path(const char* name = "a.wav") const { return mFolder.Path(name); }

    const support::FolderTree mFolder;
};

std::vector<float> Ramp(size_t frames)
{
    std::vector<float> samples(2 * frames);
    for (size_t f = 0; f < frames; ++f) {
        samples[2 * f] = float(f % 32768) / 32768.0f;
        samples[2 * f + 1] = -samples[2 * f];
    }
    return samples;
}

TEST_F(RecordingFileTest, EveryFormatIsReadBackAsItWasWritten)
{
    const std::vector<float> samples = Ramp(10000);
    for (const SampleFormat format : {SampleFormat::Float32, SampleFormat::Signed24, SampleFormat::Signed16}) {
        RecordingFile writer({.mPath = Path(), .mFormat = format, .mRateHz = 44100, .mReplace = true});
        ASSERT_EQ(writer.Open(), 0);
        ASSERT_EQ(writer.Write(samples.data(), 10000), 0);
        ASSERT_EQ(writer.Close(), 0);
        const Recording recording = ReadRecording(Path());
        EXPECT_EQ(recording.mRateHz, 44100);
        EXPECT_EQ(recording.mChannels, 2);
        EXPECT_EQ(recording.mSamples, samples) << "16 bits hold these values exactly, so every format gives them back";
    }
}

TEST_F(RecordingFileTest, IntegersRoundToTheNearestAndClipAtFullScale)
{
    const float samples[] = {1.0f, -1.0f, 1.5f, -1.5f, 0.4f / 32768, -0.6f / 32768, std::nanf(""), 0.0f};
    RecordingFile writer(Settings(Path(), SampleFormat::Signed16));
    ASSERT_EQ(writer.Open(), 0);
    ASSERT_EQ(writer.Write(samples, 4), 0);
    EXPECT_EQ(writer.ClippedSamples(), 3u) << "1.0 has no 16-bit value, 1.5 and -1.5 lie beyond";
    ASSERT_EQ(writer.Close(), 0);
    const float kOne = 1.0f / 32768;
    EXPECT_EQ(ReadRecording(Path()).mSamples, (std::vector<float>{1 - kOne, -1, 1 - kOne, -1, 0, -kOne, 0, 0}));
}

TEST_F(RecordingFileTest, AFileThatIsNeverClosedReadsUpToTheLastHeader)
{
    const std::vector<float> samples = Ramp(3000);
    RecordingFile writer(Settings(Path()));
    ASSERT_EQ(writer.Open(), 0);
    ASSERT_EQ(writer.Write(samples.data(), 2000), 0);
    ASSERT_EQ(writer.UpdateHeader(), 0);
    ASSERT_EQ(writer.Write(samples.data() + 4000, 1000), 0);
    fs::copy_file(Path(), Path("killed.wav"));  // what a killed program leaves
    const Recording recording = ReadRecording(Path("killed.wav"));
    ASSERT_GE(recording.Frames(), 2000u);
    EXPECT_TRUE(std::equal(samples.begin(), samples.begin() + 4000, recording.mSamples.begin()));
}

TEST_F(RecordingFileTest, FourGigabytesAreNoLimit)
{
    const uint64_t limit = 0xFFFFFFFF / 8;
    for (const uint64_t frames : {limit - 12, limit - 10, limit + 1, 3 * limit}) {
        const auto header = MakeWavHeader({SampleFormat::Float32, 2, 192000}, frames, false);
        const float last[2] = {0.25f, -0.5f};
        std::ofstream out(Path(), std::ios::binary);
        out.write(reinterpret_cast<const char*>(header.data()), std::streamsize(header.size()));
        out.seekp(std::streamoff(header.size() + (frames - 1) * 8));  // a hole: the file costs no disk
        out.write(reinterpret_cast<const char*>(last), sizeof(last));
        out.close();

        SF_INFO info = {};
        SNDFILE* file = sf_open(Path().c_str(), SFM_READ, &info);
        ASSERT_NE(file, nullptr) << frames;
        EXPECT_EQ(info.frames, sf_count_t(frames));
        float read[2] = {};
        EXPECT_EQ(sf_seek(file, -1, SEEK_END), sf_count_t(frames - 1));
        EXPECT_EQ(sf_readf_float(file, read, 1), 1);
        EXPECT_EQ(std::memcmp(read, last, sizeof(last)), 0);
        sf_close(file);
    }
}

TEST_F(RecordingFileTest, AFullDiskLeavesAFileOfWholeFrames)
{
    // The limit on file size stands for the disk: it too lets a write through in part, then refuses.
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {100'001, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const std::vector<float> samples = Ramp(50000);
    RecordingFile writer(Settings(Path()));
    ASSERT_EQ(writer.Open(), 0);
    EXPECT_EQ(writer.Write(samples.data(), 50000), EFBIG);
    EXPECT_EQ(writer.Close(), EFBIG);
    const Recording recording = ReadRecording(Path());
    EXPECT_EQ(recording.Frames(), writer.Frames());
    EXPECT_GE(recording.Frames(), 8192u);
    EXPECT_TRUE(std::equal(recording.mSamples.begin(), recording.mSamples.end(), samples.begin()));
}

TEST_F(RecordingFileTest, AFileThatExistsOrALinkIsNotTouched)
{
    std::ofstream(Path()) << "precious";
    fs::create_symlink(Path(), Path("link.wav"));
    EXPECT_EQ(RecordingFile(Settings(Path())).Open(), EEXIST);
    EXPECT_EQ(RecordingFile(Settings(Path("link.wav"), SampleFormat::Float32, true)).Open(), ELOOP);
    std::string text;
    std::ifstream(Path()) >> text;
    EXPECT_EQ(text, "precious");
}

}  // namespace
}  // namespace record
