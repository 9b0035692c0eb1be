#include "record/RecordingFile.h"

#include "record/WavFile.h"
#include "support/FileFaults.h"
#include "support/FolderTree.h"
#include "support/Recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sndfile.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace record {
namespace {

namespace fs = std::filesystem;
using support::ReadRecording;
using support::Recording;
using testing::ElementsAre;

constexpr SampleFormat kF32 = SampleFormat::Float32, kS24 = SampleFormat::Signed24, kS16 = SampleFormat::Signed16;

std::string Bytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Values that 16 bits hold exactly, each channel another.
std::vector<float> Ramp(size_t frames, unsigned channels = 2)
{
    std::vector<float> samples;
    for (size_t i = 0; i < frames * channels; ++i) samples.push_back(float(int(i * 7 % 65536) - 32768) / 32768.0f);
    return samples;
}

bool StartsWith(const std::vector<float>& whole, const std::vector<float>& part)
{
    return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

/// A whole recording. @return the first error
int Record(const FileSettings& settings, const std::vector<float>& samples)
{
    RecordingFile file(settings);
    if (const int error = file.Open()) return error;
    file.Write(samples.data(), samples.size() / settings.mChannels);
    return file.Close();
}

class RecordingFileTest : public testing::Test {
protected:
    std::string Path(const std::string& name = "a.wav") const { return mFolder.Root() + "/" + name; }
    /// Names and content of all that lies in the folder.
    std::map<std::string, std::string> Content() const
    {
        std::map<std::string, std::string> content;
        for (const auto& entry : fs::directory_iterator(mFolder.Root()))
            content[entry.path().filename()] = fs::is_regular_file(entry.symlink_status()) ? Bytes(entry.path()) : "?";
        return content;
    }

    const support::FolderTree mFolder;
};

/// Standard output for as long as it lives.
class StandardOutput {
public:
    explicit StandardOutput(int descriptor)
    {
        std::fflush(stdout);
        dup2(descriptor, STDOUT_FILENO);
        close(descriptor);
    }
    ~StandardOutput()
    {
        dup2(mKept, STDOUT_FILENO);
        close(mKept);
    }

private:
    const int mKept = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
};

TEST_F(RecordingFileTest, EveryFormIsReadBackAsItWasWritten)
{
    struct Row {
        FileSettings mSettings;
        size_t mFrames;
        int mMajorFormat;
        uint32_t mMaskInFile = 0;
    };
    const Row rows[] = {
        {{.mPath = "a.wav", .mFormat = kF32}, 10000, SF_FORMAT_WAV},
        {{.mPath = "a.wav", .mFormat = kS16, .mChannels = 1}, 4097, SF_FORMAT_WAV},
        {{.mPath = "a.wav", .mFormat = kS24}, 10000, SF_FORMAT_WAVEX, 0x3},
        {{.mPath = "a.wav", .mFormat = kS24, .mChannels = 1}, 3, SF_FORMAT_WAVEX, 0x4},
        {{.mPath = "a.wav", .mFormat = kF32, .mChannels = 6}, 5000, SF_FORMAT_WAVEX, 0x3F},
        {{.mPath = "a.wav", .mFormat = kS16, .mChannels = 3, .mTracksAreApart = true}, 5000, SF_FORMAT_WAVEX},
        {{.mPath = "a.wav", .mFormat = kS16, .mChannels = 4, .mChannelMask = 0x107}, 50, SF_FORMAT_WAVEX, 0x107},
        {{.mPath = "a.wav", .mFormat = kF32, .mChannels = 64}, 500, SF_FORMAT_WAVEX},
        {{.mPath = "a.flac", .mFormat = kS24}, 10000, SF_FORMAT_FLAC},
        {{.mPath = "a.flac", .mFormat = kS16, .mChannels = 1}, 3, SF_FORMAT_FLAC},
        {{.mPath = "a.flac", .mFormat = kS24, .mChannels = 8}, 9000, SF_FORMAT_FLAC},
        {{.mPath = "a.flac", .mFormat = kS16, .mChannels = 4, .mTracksAreApart = true}, 5000, SF_FORMAT_FLAC},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << &row - rows);
        FileSettings settings = row.mSettings;
        SampleFormat usual;
        ASSERT_EQ(ReadFileType(settings.mPath, settings.mType, usual), "");
        settings.mPath = Path(settings.mPath);
        settings.mReplace = true;
        const std::vector<float> samples = Ramp(row.mFrames, settings.mChannels);
        ASSERT_EQ(Record(settings, samples), 0);
        SF_INFO info = {};
        sf_close(sf_open(settings.mPath.c_str(), SFM_READ, &info));
        EXPECT_EQ(info.format & SF_FORMAT_TYPEMASK, row.mMajorFormat);
        const std::string bytes = Bytes(settings.mPath);
        const uint32_t riffBytes = uint32_t(bytes.size() - 8);
        EXPECT_TRUE(settings.mType == FileType::Flac ||
                    (bytes.size() % 2 == 0 && std::memcmp(&bytes[4], &riffBytes, 4) == 0));
        EXPECT_TRUE(row.mMajorFormat != SF_FORMAT_WAVEX || std::memcmp(&bytes[76], &row.mMaskInFile, 4) == 0);
        const Recording recording = ReadRecording(settings.mPath);
        EXPECT_EQ(recording.mChannels, int(settings.mChannels));
        EXPECT_EQ(recording.mRateHz, 48000);
        EXPECT_EQ(recording.mSamples, samples);
    }
    EXPECT_THAT(Bytes(Path("a.flac")), testing::HasSubstr("WAVEFORMATEXTENSIBLE_CHANNEL_MASK=0x0000"));
    EXPECT_EQ(Record({.mPath = Path("a"), .mType = FileType::Raw, .mFormat = kS24, .mChannels = 1}, {0.5f, -1.0f}), 0);
    EXPECT_EQ(Bytes(Path("a")), std::string("\x00\x00\x40\x00\x00\x80", 6));
}

TEST_F(RecordingFileTest, IntegersRoundToTheNearestAndClipAtFullScale)
{
    const float samples[] = {1.0f, -1.0f, 1.5f, -1.5f, 0.4f / 32768, -0.6f / 32768, std::nanf(""), 0.0f};
    const float one = 1.0f / 32768;
    for (const FileType type : {FileType::Wav, FileType::Flac}) {
        RecordingFile file({.mPath = Path(), .mType = type, .mFormat = kS16, .mReplace = true});
        ASSERT_EQ(file.Open(), 0);
        ASSERT_EQ(file.Write(samples, 4), 0);
        EXPECT_EQ(file.ClippedSamples(), 3u) << "1.0 has no 16-bit value, 1.5 and -1.5 lie beyond";
        ASSERT_EQ(file.Close(), 0);
        EXPECT_EQ(ReadRecording(Path()).mSamples, (std::vector<float>{1 - one, -1, 1 - one, -1, 0, -one, 0, 0}));
    }
}

TEST_F(RecordingFileTest, AFileThatIsNeverClosedReadsUpToTheLastHeader)
{
    const std::vector<float> samples = Ramp(30000);
    for (const FileType type : {FileType::Wav, FileType::Flac}) {
        RecordingFile file({.mPath = Path(), .mType = type, .mFormat = kS24, .mReplace = true});
        ASSERT_EQ(file.Open(), 0);
        ASSERT_EQ(file.Write(samples.data(), 20000), 0);
        ASSERT_EQ(file.UpdateHeader(), 0);
        ASSERT_EQ(file.Write(samples.data() + 40000, 10000), 0);
        // What a killed program leaves. The older file of this name is still there in the second round.
        const auto content = Content();
        std::ofstream(Path("killed"), std::ios::binary) << content.begin()->second;
        file.Close();
        const Recording recording = ReadRecording(Path("killed"));
        EXPECT_GT(recording.Frames(), type == FileType::Wav ? 19999u : 20000u - 2 * 4096u);
        EXPECT_TRUE(StartsWith(samples, recording.mSamples));
        fs::remove(Path("killed"));
    }
}

TEST_F(RecordingFileTest, FourGigabytesAreNoLimit)
{
    const uint64_t limit = (0xFFFFFFFF - 86) / 8;  // frames whose size a plain header can just say
    for (const uint64_t frames : {limit, limit + 1, 3 * limit}) {
        const auto header = MakeWavHeader({kF32, 2, 192000}, frames, false);
        EXPECT_EQ(std::memcmp(header.data(), frames > limit ? "RF64" : "RIFF", 4), 0) << frames;
        mFolder.Write("a.wav", std::string(header.begin(), header.end()));
        fs::resize_file(Path(), header.size() + frames * 8);  // a hole: the file costs no disk
        SF_INFO info = {};
        EXPECT_EQ(sf_close(sf_open(Path().c_str(), SFM_READ, &info)), 0);
        EXPECT_EQ(info.frames, sf_count_t(frames));
    }
}

/// 10,000 frames at 2 kHz, of which the K-th call that writes fails.
struct FaultyRun {
    static constexpr size_t kFrames = 10000, kPiece = 1000;

    FaultyRun(const std::string& path, FileType type, bool replace, int failing)
        : mFaults(failing),
          mFile({.mPath = path, .mType = type, .mFormat = kS24, .mChannels = 1, .mRateHz = 2000, .mReplace = replace})
    {
        mFaults.mMostBytes = 101;
        mFaults.Start();
        mOpened = mFile.Open() == 0;
        while (mOpened && mFailed == 0 && mFrames < kFrames) {
            mFailed = mFile.Write(mSamples.data() + mFrames, kPiece);
            if (mFailed == 0) mFrames += kPiece;
            mFile.UpdateHeader();
        }
        mClosed = mFile.Close();
        mFaults.Stop();
        mCall = (mFaults.mOrder + ".")[size_t(failing)];
    }

    const std::vector<float> mSamples = Ramp(kFrames, 1);
    support::FileFaults mFaults;
    RecordingFile mFile;
    bool mOpened = false;
    size_t mFrames = 0;  // that were written before the first error
    int mFailed = 0, mClosed = 0;
    char mCall = '.';  // that failed
};

TEST_F(RecordingFileTest, WhicheverCallFailsTheOldFileOrWholeNewFramesAreThere)
{
    for (const FileType type : {FileType::Wav, FileType::Flac, FileType::Raw}) {
        for (const bool replace : {false, true}) {
            std::vector<std::string> contents;
            int calls = 1000;
            for (int failing = 0; failing < calls; ++failing) {
                for (const auto& [left, bytes] : Content()) fs::remove(Path(left));
                if (replace) mFolder.Write("a", "precious");
                const FaultyRun run(Path("a"), type, replace, failing);
                SCOPED_TRACE(testing::Message() << int(type) << replace << failing << run.mFaults.mOrder);
                if (run.mCall == '.') calls = failing;
                EXPECT_TRUE(run.mCall == '.' ? run.mClosed == 0 : run.mClosed != 0 || std::strchr("prfc", run.mCall));
                const auto content = Content();
                ASSERT_EQ(content.size(), run.mOpened || replace ? 1u : 0u);
                if (content.empty()) continue;
                const std::string bytes = content.at("a");
                // A block of FLAC is longer than a second here.
                const bool tooShort = run.mFailed && run.mFrames < (type == FileType::Flac ? 4096 : 2000);
                EXPECT_EQ(bytes == "precious", replace && (!run.mOpened || tooShort));
                const uint64_t frames = run.mFile.Frames();
                if (bytes == "precious") continue;
                EXPECT_TRUE(!replace || run.mFaults.mOrder.find('f') < run.mFaults.mOrder.find('r'));
                if (run.mCall == 'p' || run.mCall == 't') continue;
                contents.push_back(bytes);
                if (type == FileType::Raw) {
                    EXPECT_EQ(bytes.size(), 3 * frames);
                    continue;
                }
                const Recording recording = ReadRecording(Path("a"));
                EXPECT_TRUE(StartsWith(run.mSamples, recording.mSamples));
                EXPECT_EQ(recording.Frames(), frames);
                if (type == FileType::Wav) {
                    EXPECT_EQ(bytes.size(), 116 + 3 * frames + frames % 2);
                } else {
                    EXPECT_EQ(bytes.substr(26, 16) == std::string(16, 0), frames < run.kFrames)
                        << "sum of what is there";
                }
            }
            EXPECT_LT(calls, 1000);
            if (type != FileType::Flac) continue;
            const std::string whole = contents.back() + "\xFF\xF8";
            for (const std::string& bytes : contents)
                EXPECT_EQ(whole.substr(bytes.size(), 2), "\xFF\xF8") << "a block begins there";
        }
    }
}

TEST_F(RecordingFileTest, PathsThatCannotBeWrittenAreRefusedAndLeftAlone)
{
    mFolder.Write("old.wav", "precious");
    fs::create_directory(Path("folder"));
    fs::create_symlink("old.wav", Path("link.wav"));
    fs::create_symlink("nowhere", Path("dangling.wav"));
    fs::create_symlink("loop", Path("loop"));
    mkfifo(Path("fifo").c_str(), 0600);
    fs::create_directory(Path("locked"));
    for (const auto& [name, mode] :
         std::map<std::string, mode_t>{{"", 0777}, {"fifo", 0666}, {"locked", 0555}, {"old.wav", 0444}})
        chmod(Path(name).c_str(), mode);
    const auto before = Content();
    struct Row {
        std::string mName;
        bool mReplace;
        int mError;
        const char* mSays;
        uint64_t mMostFrames = 0;
    };
    const Row rows[] = {
        {"old.wav", false, EEXIST, "--force"},
        {"old.wav", true, EACCES, "Permission denied"},
        {"locked/x.wav", true, EACCES, "Permission denied"},
        {"link.wav", false, ELOOP, "a link to 'old.wav'"},
        {"link.wav", true, ELOOP, "a link to 'old.wav'"},
        {"dangling.wav", true, ELOOP, "a link to 'nowhere'"},
        {"loop/x.wav", true, ELOOP, "leads to itself"},
        {"folder", true, EISDIR, "is a folder"},
        {"folder/", true, EISDIR, "is a folder"},
        {"folder/..", true, EISDIR, "is a folder"},
        {"old.wav/x.wav", true, ENOTDIR, "Not a directory"},
        {"absent/x.wav", true, ENOENT, "does not exist"},
        {std::string(300, 'a') + ".wav", true, ENAMETOOLONG, "too long"},
        {std::string(250, 'a') + ".wav", true, ENAMETOOLONG, "too long", 1000},
        {"\x1B[31mred\n/x.wav", true, ENOENT, "?[31mred?"},
    };
    const uid_t user = geteuid();
    ASSERT_EQ(seteuid(user == 0 ? 65534 : user), 0) << "root may write everywhere";
    for (const Row& row : rows) {
        RecordingFile file({.mPath = Path(row.mName), .mReplace = row.mReplace, .mMostFrames = row.mMostFrames});
        EXPECT_EQ(file.Check(), row.mError) << row.mName;
        EXPECT_THAT(DescribeFileError(Path(row.mName), row.mError), testing::HasSubstr(row.mSays));
        if (row.mMostFrames != 0) continue;
        EXPECT_EQ(file.Open(), row.mError) << row.mName;
        EXPECT_EQ(file.Close(), row.mError);
    }
    EXPECT_EQ(RecordingFile({.mPath = Path("fifo")}).Open(), ENXIO) << "nothing reads from it, and Open does not wait";
    ASSERT_EQ(seteuid(user), 0);
    EXPECT_EQ(Content(), before);
}

TEST_F(RecordingFileTest, AnOlderFileStaysUntilThereIsASecondOfSound)
{
    const std::vector<float> samples = Ramp(1000);
    struct Row {
        size_t mFrames;
        bool mAbandon;
        bool mReplacedBefore, mReplacedAfter;
    };
    for (const Row& row : {Row{0, false, false, false}, Row{1, false, false, true}, Row{999, true, false, false},
                           Row{1000, false, true, true}, Row{1000, true, true, true}}) {
        SCOPED_TRACE(testing::Message() << row.mFrames << row.mAbandon);
        mFolder.Write("a.wav", "precious");
        mFolder.Write(".corvane-" + std::to_string(getpid()) + "-0.part", "of a killed program");
        RecordingFile file({.mPath = Path(), .mRateHz = 1000, .mReplace = true});
        ASSERT_EQ(file.Check(), 0);
        ASSERT_EQ(file.Open(), 0);
        ASSERT_EQ(file.Write(samples.data(), row.mFrames), 0);
        EXPECT_EQ(Bytes(Path()) != "precious", row.mReplacedBefore);
        row.mAbandon ? file.Abandon() : void(file.Close());
        EXPECT_EQ(Bytes(Path()) != "precious", row.mReplacedAfter);
        EXPECT_EQ(Content().size(), 2u);
        if (row.mReplacedAfter) {
            EXPECT_EQ(ReadRecording(Path()).Frames(), row.mFrames);
        }
        fs::remove(Path());
    }
    RecordingFile file({.mPath = Path()});
    ASSERT_EQ(file.Open(), 0);
    file.Abandon();
    EXPECT_EQ(Content().size(), 1u);
}

TEST_F(RecordingFileTest, ANewFileBeginsWithoutALostFrameAndPassesOverTakenNames)
{
    const std::vector<float> samples = Ramp(9500);
    for (const FileType type : {FileType::Wav, FileType::Flac}) {
        for (const auto& [name, bytes] : Content()) fs::remove(Path(name));
        mFolder.Write("a.b-002.wav", "precious");
        RecordingFile file({.mPath = Path("a.b.wav"), .mType = type, .mFormat = kS16, .mMostFrames = 4500});
        ASSERT_EQ(file.Open(), 0);
        for (size_t at = 0; at < 9500; at += 950) ASSERT_EQ(file.Write(samples.data() + 2 * at, 950), 0);
        ASSERT_EQ(file.Close(), 0);
        EXPECT_EQ(file.Frames(), 9500u);
        EXPECT_THAT(file.Paths(), ElementsAre(Path("a.b.wav"), Path("a.b-003.wav"), Path("a.b-004.wav")));
        std::vector<float> together;
        for (const std::string& path : file.Paths()) {
            const Recording part = ReadRecording(path);
            EXPECT_EQ(part.Frames(), path == file.Paths().back() ? 500u : 4500u);
            together.insert(together.end(), part.mSamples.begin(), part.mSamples.end());
        }
        EXPECT_EQ(together, samples);
        EXPECT_EQ(Bytes(Path("a.b-002.wav")), "precious");
    }
}

TEST_F(RecordingFileTest, StandardOutputThatIsAFileHasATrueHeaderWhereTheRecordingBegins)
{
    const std::vector<float> samples = Ramp(1001, 1);
    for (const int flags : {O_RDWR, O_WRONLY | O_APPEND}) {
        for (const std::string end : {"closed", "abandoned", "written by others"}) {
            mFolder.Write("out", "before!");
            {
                const StandardOutput output(open(Path("out").c_str(), flags));
                lseek(STDOUT_FILENO, flags & O_APPEND ? 0 : 7, SEEK_SET);
                RecordingFile file({.mPath = "-", .mFormat = kS24, .mChannels = 1});
                EXPECT_EQ(file.Check(), 0);
                EXPECT_EQ(file.Open(), 0);
                EXPECT_EQ(file.Write(samples.data(), 1001), 0);
                EXPECT_EQ(file.UpdateHeader(), 0);
                EXPECT_GE(write(STDOUT_FILENO, "!", end == "written by others"), 0);
                end == "closed" ? void(file.Close()) : file.Abandon();
                EXPECT_EQ(write(STDOUT_FILENO, "after", 5), 5);
            }
            const std::string bytes = Bytes(Path("out"));
            EXPECT_EQ(bytes.substr(0, 7), "before!");
            EXPECT_EQ(bytes.substr(bytes.size() - 5), "after");
            EXPECT_EQ(bytes.size(), 7 + 5 + (end == "abandoned" ? 0 : 116 + 3003 + 1));
            if (end != "closed") continue;
            mFolder.Write("cut.wav", bytes.substr(7, 116 + 3003 + 1));
            EXPECT_EQ(ReadRecording(Path("cut.wav")).mSamples, samples);
        }
    }
}

TEST_F(RecordingFileTest, AStalledReaderOfAPipeHoldsNoThreadThatIsInterrupted)
{
    const std::vector<float> samples = Ramp(100'000);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int others = dup(ends[1]);
    RecordingFile file({.mPath = "-"});
    {
        const StandardOutput output(ends[1]);
        EXPECT_EQ(file.Open(), 0);
        file.Interrupt();
        EXPECT_EQ(file.Write(samples.data(), 100), 0) << "there is room in the pipe";
        EXPECT_EQ(file.Write(samples.data() + 200, 99'900), EINTR);
        EXPECT_EQ(file.Close(), EINTR);
    }
    EXPECT_EQ(fcntl(others, F_GETFL) & O_NONBLOCK, 0) << "other programs write there too";
    std::string bytes(100'000, 0);
    bytes.resize(size_t(read(ends[0], bytes.data(), bytes.size())));
    EXPECT_GT(bytes.size(), 60'000u);
    EXPECT_EQ(bytes.substr(4, 4), "\xFF\xFF\xFF\xFF") << "a stream has no end yet";
    EXPECT_EQ(std::memcmp(bytes.data() + 94, samples.data(), bytes.size() - 94), 0);

    std::signal(SIGPIPE, SIG_IGN);
    close(ends[0]);
    const StandardOutput output(others);
    RecordingFile broken({.mPath = "-"});
    EXPECT_EQ(broken.Open(), EPIPE);
}

TEST_F(RecordingFileTest, StandardOutputThatIsATerminalOrIsClosedIsRefused)
{
    mFolder.Write("in", "");
    for (const auto& [descriptor, error] :
         std::map<int, int>{{posix_openpt(O_RDWR | O_NOCTTY), ENOTTY}, {open(Path("in").c_str(), O_RDONLY), EBADF}}) {
        const StandardOutput output(descriptor);
        EXPECT_EQ(RecordingFile({.mPath = "-"}).Check(), error);
        EXPECT_EQ(RecordingFile({.mPath = "-"}).Open(), error);
    }
}

TEST(FileSettings, NameTheTypeOrWhatIsWrong)
{
    struct Row {
        const char* mPath;
        bool mIsWrong;
        FileType mType = FileType::Wav;
        SampleFormat mFormat = kF32;
    };
    for (const Row& row :
         {Row{"a.wav", false}, Row{"-", false}, Row{"A.FLAC", false, FileType::Flac, kS24},
          Row{"a.raw", false, FileType::Raw}, Row{"a.mp3", true}, Row{".wav", true}, Row{"a.wav/b", true}}) {
        FileSettings read;
        EXPECT_EQ(!ReadFileType(row.mPath, read.mType, read.mFormat).empty(), row.mIsWrong) << row.mPath;
        EXPECT_EQ(std::pair(read.mType, read.mFormat), std::pair(row.mType, row.mFormat)) << row.mPath;
    }
    for (const FileSettings& wrong :
         {FileSettings{.mPath = "a", .mType = FileType::Flac, .mFormat = kF32},
          FileSettings{.mPath = "a", .mType = FileType::Flac, .mFormat = kS16, .mChannels = 9},
          FileSettings{.mPath = "-", .mMostFrames = 1}}) {
        EXPECT_NE(DescribeWrongSettings(wrong), "");
        EXPECT_EQ(Record(wrong, {}), EINVAL);
    }
}

}  // namespace
}  // namespace record
