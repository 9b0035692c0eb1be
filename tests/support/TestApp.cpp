// corvane-test-app: an application that plays, or an input device whose crystal is off. Prints a line when it plays or
// is there; ends on SIGTERM with a line that says how many frames the server did not take of it.
#include <pipewire/pipewire.h>
#include <spa/debug/types.h>
#include <spa/param/audio/format-utils.h>
#include <spa/param/audio/type-info.h>
#include <CLI/CLI.hpp>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr uint64_t kSecondNanos = 1'000'000'000;
constexpr uint64_t kClickNanos = kSecondNanos / 2;
constexpr float kClick = 0.9f;

struct Options {
    std::string mName = "test-app";
    double mFrequencyHz = 440;
    double mAmplitude = 0.25;
    bool mCounter = false;
    bool mFromHostTime = false;
    bool mClicks = false;
    std::string mPositions = "FL FR";
    int mOnly = -1;  // the only channel with sound; below 0: all
    std::string mTarget;
    unsigned mRateHz = 48000;
    std::vector<std::string> mProperties;
    bool mChild = false;
    bool mDevice = false;
    double mPPM = 0;
    unsigned mQuantum = 512;
};

std::vector<uint32_t> ParsePositions(const std::string& text)
{
    std::vector<uint32_t> positions;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const bool auxiliary = word.starts_with("AUX");
        positions.push_back(auxiliary ? SPA_AUDIO_CHANNEL_AUX0 + static_cast<uint32_t>(std::stoul(word.substr(3)))
                                      : spa_debug_type_find_type_short(spa_type_audio_channel, word.c_str()));
    }
    return positions;
}

void Say(const char* word)
{
    std::puts(word);
    std::fflush(stdout);
}

/// A stream of floats, until a signal comes.
class Stream {
public:
    Stream(const Options& options, pw_properties* properties);
    virtual ~Stream();
    void Connect(int flags);
    void Run() { pw_main_loop_run(mLoop); }

protected:
    virtual void OnState(pw_stream_state state) = 0;
    /// Writes frames of all channels.
    virtual void Fill(float* samples, uint64_t frames) = 0;
    /// Frames of a cycle for which the server does not say how many it wants.
    virtual uint64_t UsualFrames() const { return UINT64_MAX; }

    const Options& mOptions;
    const std::vector<uint32_t> mPositions;
    std::atomic<spa_io_clock*> mClock{nullptr};        // stored by the loop's thread
    std::atomic<spa_io_position*> mPosition{nullptr};  // the same
    pw_main_loop* mLoop = pw_main_loop_new(nullptr);
    pw_stream* mStream = nullptr;

private:
    void OnArea(uint32_t id, void* area);
    void Process();
    static const pw_stream_events kEvents;
};

const pw_stream_events Stream::kEvents = {
    .version = PW_VERSION_STREAM_EVENTS,
    .state_changed = [](void* self, pw_stream_state, pw_stream_state state,
                        const char*) { static_cast<Stream*>(self)->OnState(state); },
    .io_changed = [](void* self, uint32_t id, void* area, uint32_t) { static_cast<Stream*>(self)->OnArea(id, area); },
    .process = [](void* self) { static_cast<Stream*>(self)->Process(); },
};

Stream::Stream(const Options& options, pw_properties* properties)
    : mOptions(options), mPositions(ParsePositions(options.mPositions))
{
    pw_loop* loop = pw_main_loop_get_loop(mLoop);
    const auto quit = [](void* self, int) { pw_main_loop_quit(static_cast<Stream*>(self)->mLoop); };
    for (const int signal : {SIGTERM, SIGINT}) pw_loop_add_signal(loop, signal, quit, this);
    pw_properties_set(properties, PW_KEY_NODE_NAME, mOptions.mName.c_str());
    for (const std::string& property : mOptions.mProperties) {
        const size_t equals = property.find('=');
        pw_properties_set(properties, property.substr(0, equals).c_str(), property.substr(equals + 1).c_str());
    }
    mStream = pw_stream_new_simple(loop, mOptions.mName.c_str(), properties, &kEvents, this);
}

Stream::~Stream()
{
    pw_main_loop_destroy(mLoop);
}

void Stream::Connect(int flags)
{
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32;
    format.rate = mOptions.mRateHz;
    format.channels = static_cast<uint32_t>(mPositions.size());
    std::copy(mPositions.begin(), mPositions.end(), format.position);
    std::array<uint8_t, 1024> space;
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, space.data(), space.size());
    const spa_pod* pod = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format);
    flags |= PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS;
    pw_stream_connect(mStream, PW_DIRECTION_OUTPUT, PW_ID_ANY, static_cast<pw_stream_flags>(flags), &pod, 1);
}

void Stream::OnArea(uint32_t id, void* area)
{
    if (id == SPA_IO_Clock) mClock.store(static_cast<spa_io_clock*>(area));
    if (id == SPA_IO_Position) mPosition.store(static_cast<spa_io_position*>(area));
}

void Stream::Process()
{
    pw_buffer* buffer = pw_stream_dequeue_buffer(mStream);
    if (buffer == nullptr) return;
    spa_data& data = buffer->buffer->datas[0];
    const auto stride = static_cast<uint32_t>(mPositions.size() * sizeof(float));
    const uint64_t wanted = buffer->requested == 0 ? UsualFrames() : buffer->requested;
    const uint64_t frames = std::min<uint64_t>(wanted, data.maxsize / stride);
    Fill(static_cast<float*>(data.data), frames);
    data.chunk->offset = 0;
    data.chunk->stride = static_cast<int32_t>(stride);
    data.chunk->size = static_cast<uint32_t>(frames) * stride;
    pw_stream_queue_buffer(mStream, buffer);
}

class Player final : public Stream {
public:
    explicit Player(const Options& options) : Stream(options, BuildProperties(options))
    {
        Connect(PW_STREAM_FLAG_AUTOCONNECT);
    }
    ~Player() override
    {
        pw_stream_destroy(mStream);
        std::printf("missed %lld\n", static_cast<long long>(std::max<int64_t>(mMissed, 0)));
    }

private:
    static pw_properties* BuildProperties(const Options& options);
    void OnState(pw_stream_state state) override
    {
        if (state == PW_STREAM_STATE_STREAMING) Say("playing");
    }
    void Fill(float* samples, uint64_t frames) override;
    void NotePosition();
    float Sample(unsigned channel) const;

    uint64_t mFrame = 0;
    uint64_t mFirstPosition = 0, mFirstCount = 0;
    uint32_t mClockID = 0;  // of the driver
    uint64_t mAsked = 0;    // frames since the first position that we were asked for or have missed
    int64_t mMissed = 0;
};

pw_properties* Player::BuildProperties(const Options& options)
{
    pw_properties* properties = pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback",
                                                  PW_KEY_APP_NAME, options.mName.c_str(), nullptr);
    if (!options.mTarget.empty()) pw_properties_set(properties, PW_KEY_TARGET_OBJECT, options.mTarget.c_str());
    return properties;
}

// The counter says which frame a sample is: exact in a float, and a different one in odd channels.
float Player::Sample(unsigned channel) const
{
    constexpr uint64_t kCounterPeriod = 1 << 20;
    if (mOptions.mOnly >= 0 && channel != static_cast<unsigned>(mOptions.mOnly)) return 0;
    if (mOptions.mCounter) {
        const float count = static_cast<float>((mFirstCount + mFrame) % kCounterPeriod) / kCounterPeriod;
        return channel % 2 == 0 ? count : -count;
    }
    if (mOptions.mClicks) return (mFirstCount + mFrame) % (mOptions.mRateHz / 2) == 0 ? kClick : 0.0f;
    const double cycles = mOptions.mFrequencyHz * static_cast<double>(mFrame) / mOptions.mRateHz;
    return static_cast<float>(mOptions.mAmplitude * std::sin(2 * std::numbers::pi * std::fmod(cycles, 1.0)));
}

// A late server may ask twice under one position: in sum the position tells how many frames were due.
void Player::NotePosition()
{
    const spa_io_position* position = mPosition.load();
    if (position == nullptr) return;
    if (mFrame == 0) {
        mFirstPosition = position->clock.position;
        if (mOptions.mFromHostTime)
            mFirstCount = static_cast<uint64_t>(static_cast<double>(position->clock.nsec) * 1e-9 * mOptions.mRateHz);
    }
    if (mOptions.mFromHostTime && position->clock.id != mClockID) {
        // Another driver counts from elsewhere: the host clock says which frame is due.
        mFirstPosition = position->clock.position - mAsked;
        mFrame =
            static_cast<uint64_t>(static_cast<double>(position->clock.nsec) * 1e-9 * mOptions.mRateHz) - mFirstCount;
    }
    mClockID = position->clock.id;
    const uint64_t due = position->clock.position - mFirstPosition;
    mMissed += static_cast<int64_t>(due - mAsked);
    if (mOptions.mFromHostTime) mFrame += due - mAsked;  // a cycle that was missed does not make the count late
    mAsked = due;
}

void Player::Fill(float* samples, uint64_t frames)
{
    NotePosition();
    mAsked += frames;
    for (const uint64_t end = mFrame + frames; mFrame < end; ++mFrame)
        for (unsigned channel = 0; channel < mPositions.size(); ++channel) *samples++ = Sample(channel);
}

/// Hears a click at every half second of the host clock.
class Microphone final : public Stream {
public:
    explicit Microphone(const Options& options) : Stream(options, BuildProperties(options))
    {
        mTimer = pw_loop_add_timer(
            pw_main_loop_get_loop(mLoop), [](void* self, uint64_t) { static_cast<Microphone*>(self)->Tick(); }, this);
        Connect(PW_STREAM_FLAG_DRIVER);
    }
    ~Microphone() override
    {
        pw_stream_destroy(mStream);
        const uint64_t taken = mTaken + mOptions.mQuantum;  // the last cycle is not waited for
        std::printf("missed %llu\n", static_cast<unsigned long long>(mFrame > taken ? mFrame - taken : 0));
    }

private:
    static pw_properties* BuildProperties(const Options& options);
    void OnState(pw_stream_state state) override;
    void Fill(float* samples, uint64_t frames) override;
    uint64_t UsualFrames() const override { return mOptions.mQuantum; }
    void Tick();
    void Arm();
    // True moment of a frame since the device started: its crystal is not the host's.
    uint64_t MomentOf(uint64_t frame) const
    {
        return mStartNanos + static_cast<uint64_t>(static_cast<double>(frame) * 1e9 / mTrueRateHz);
    }

    const double mTrueRateHz = mOptions.mRateHz * (1 + mOptions.mPPM * 1e-6);
    spa_source* mTimer = nullptr;
    bool mRuns = false;
    uint64_t mStartNanos = 0;
    uint64_t mFrame = 0;            // of the next cycle
    std::atomic<uint64_t> mDue{0};  // of the cycle in hand; stored by the loop, loaded by the data thread
    uint64_t mTaken = 0;            // the data thread's
};

pw_properties* Microphone::BuildProperties(const Options& options)
{
    return pw_properties_new(PW_KEY_MEDIA_CLASS, "Audio/Source", PW_KEY_NODE_DESCRIPTION, options.mName.c_str(),
                             PW_KEY_NODE_FORCE_QUANTUM, std::to_string(options.mQuantum).c_str(),
                             PW_KEY_PRIORITY_DRIVER, "3000", PW_KEY_PRIORITY_SESSION, "2000", nullptr);
}

void Microphone::OnState(pw_stream_state state)
{
    if (state == PW_STREAM_STATE_PAUSED && !mRuns) Say("playing");
    mRuns = state == PW_STREAM_STATE_STREAMING;
    if (!mRuns) return;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    mStartNanos = static_cast<uint64_t>(now.tv_sec) * kSecondNanos + static_cast<uint64_t>(now.tv_nsec);
    mFrame = 0;
    mTaken = 0;
    Arm();
}

void Microphone::Arm()
{
    const uint64_t due = MomentOf(mFrame);
    timespec value{static_cast<time_t>(due / kSecondNanos), static_cast<long>(due % kSecondNanos)};
    pw_loop_update_timer(pw_main_loop_get_loop(mLoop), mTimer, &value, nullptr, true);
}

void Microphone::Tick()
{
    spa_io_clock* clock = mClock.load();
    spa_io_position* position = mPosition.load();
    if (!mRuns || clock == nullptr || position == nullptr) return;
    const uint64_t frames = position->clock.duration != 0 ? position->clock.duration : mOptions.mQuantum;
    clock->nsec = MomentOf(mFrame);
    clock->rate = {1, mOptions.mRateHz};
    clock->position = mFrame;
    clock->duration = frames;
    clock->delay = 0;
    clock->rate_diff = 1 + mOptions.mPPM * 1e-6;
    mDue.store(mFrame);
    mFrame += frames;
    clock->next_nsec = MomentOf(mFrame);
    pw_stream_trigger_process(mStream);
    Arm();
}

void Microphone::Fill(float* samples, uint64_t frames)
{
    const uint64_t first = mDue.load();  // by the clock: the first cycle of all may come without a call
    for (uint64_t frame = first; frame < first + frames; ++frame)
        *samples++ = MomentOf(frame) / kClickNanos != MomentOf(frame - 1) / kClickNanos ? kClick : 0.0f;
    mTaken += frames;
}

// The child that plays ends with its parent, whatever ends that.
void PlayInChild()
{
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(1);
        return;
    }
    waitpid(child, nullptr, 0);
    _exit(0);
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App command("Plays a tone, or a count of frames, or is an input device, until SIGTERM.");
    command.add_option("--name", options.mName, "name of the node and of the application");
    command.add_option("--frequency", options.mFrequencyHz, "of the tone, in Hz");
    command.add_option("--amplitude", options.mAmplitude, "of the tone");
    command.add_flag("--counter", options.mCounter, "play frame index / 2^20, negated in odd channels");
    command.add_flag("--clicks", options.mClicks,
                     "play a click every half second; with --from-host-time, of the host clock");
    command.add_flag("--from-host-time", options.mFromHostTime, "count the host clock's frames");
    command.add_option("--positions", options.mPositions, "channels, as \"FL FR\"");
    command.add_option("--only", options.mOnly, "the one channel that is not silent, from 0");
    command.add_option("--target", options.mTarget, "name of the sink to play on");
    command.add_option("--rate", options.mRateHz, "in Hz");
    command.add_option("--properties", options.mProperties, "key=value, for the node");
    command.add_flag("--child", options.mChild, "play from a child process");
    command.add_flag("--device", options.mDevice, "be an input device, which hears a click at every half second");
    command.add_option("--ppm", options.mPPM, "the device's crystal's error");
    command.add_option("--quantum", options.mQuantum, "the device's frames a cycle");
    CLI11_PARSE(command, argc, argv);
    if (options.mDevice) options.mPositions = "MONO";
    if (options.mChild) PlayInChild();
    pw_init(nullptr, nullptr);
    std::unique_ptr<Stream> stream;
    if (options.mDevice)
        stream = std::make_unique<Microphone>(options);
    else
        stream = std::make_unique<Player>(options);
    stream->Run();
    return 0;
}
