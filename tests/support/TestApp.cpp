// corvane-test-app: an application that plays. Prints a line when it starts to play, ends on SIGTERM with a line that
// says how many frames passed on the server without its being asked for them.
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
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

namespace {

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
};

class Player {
public:
    explicit Player(const Options& options);
    ~Player();
    void Run() { pw_main_loop_run(mLoop); }

private:
    pw_properties* BuildProperties() const;
    void Connect();
    void Process();
    void NotePosition();
    float Sample(unsigned channel) const;

    static const pw_stream_events kEvents;

    const Options& mOptions;
    std::vector<uint32_t> mPositions;
    uint64_t mFrame = 0;
    std::atomic<const spa_io_position*> mPosition{nullptr};  // stored by the loop, loaded by the data thread
    uint64_t mFirstPosition = 0, mFirstCount = 0;
    uint64_t mAsked = 0;  // frames since the first position that we were asked for or have missed
    int64_t mMissed = 0;
    pw_main_loop* mLoop;
    pw_stream* mStream;
};

const pw_stream_events Player::kEvents = {
    .version = PW_VERSION_STREAM_EVENTS,
    .state_changed =
        [](void*, pw_stream_state, pw_stream_state state, const char*) {
            if (state != PW_STREAM_STATE_STREAMING) return;
            std::puts("playing");
            std::fflush(stdout);
        },
    .io_changed =
        [](void* self, uint32_t id, void* area, uint32_t) {
            if (id == SPA_IO_Position) static_cast<Player*>(self)->mPosition.store(static_cast<spa_io_position*>(area));
        },
    .process = [](void* self) { static_cast<Player*>(self)->Process(); },
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

Player::Player(const Options& options)
    : mOptions(options), mPositions(ParsePositions(options.mPositions)), mLoop(pw_main_loop_new(nullptr))
{
    pw_loop* loop = pw_main_loop_get_loop(mLoop);
    const auto quit = [](void* self, int) { pw_main_loop_quit(static_cast<Player*>(self)->mLoop); };
    for (const int signal : {SIGTERM, SIGINT}) pw_loop_add_signal(loop, signal, quit, this);
    mStream = pw_stream_new_simple(loop, mOptions.mName.c_str(), BuildProperties(), &kEvents, this);
    Connect();
}

Player::~Player()
{
    pw_stream_destroy(mStream);
    std::printf("missed %llu\n", static_cast<unsigned long long>(std::max<int64_t>(mMissed, 0)));
    pw_main_loop_destroy(mLoop);
}

pw_properties* Player::BuildProperties() const
{
    pw_properties* properties =
        pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback", PW_KEY_NODE_NAME,
                          mOptions.mName.c_str(), PW_KEY_APP_NAME, mOptions.mName.c_str(), nullptr);
    if (!mOptions.mTarget.empty()) pw_properties_set(properties, PW_KEY_TARGET_OBJECT, mOptions.mTarget.c_str());
    for (const std::string& property : mOptions.mProperties) {
        const size_t equals = property.find('=');
        pw_properties_set(properties, property.substr(0, equals).c_str(), property.substr(equals + 1).c_str());
    }
    return properties;
}

void Player::Connect()
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
    const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                    PW_STREAM_FLAG_RT_PROCESS);
    pw_stream_connect(mStream, PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, &pod, 1);
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
    if (mOptions.mClicks) return (mFirstCount + mFrame) % (mOptions.mRateHz / 2) == 0 ? 0.9f : 0.0f;
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
    const uint64_t due = position->clock.position - mFirstPosition;
    mMissed += static_cast<int64_t>(due - mAsked);
    if (mOptions.mFromHostTime) mFrame += due - mAsked;  // a cycle that was missed does not make the count late
    mAsked = due;
}

void Player::Process()
{
    NotePosition();
    pw_buffer* buffer = pw_stream_dequeue_buffer(mStream);
    if (buffer == nullptr) return;
    spa_data& data = buffer->buffer->datas[0];
    const auto stride = static_cast<uint32_t>(mPositions.size() * sizeof(float));
    const uint64_t room = data.maxsize / stride;
    const uint64_t frames = buffer->requested == 0 ? room : std::min<uint64_t>(buffer->requested, room);
    auto* sample = static_cast<float*>(data.data);
    for (uint64_t frame = 0; frame < frames; ++frame, ++mFrame)
        for (unsigned channel = 0; channel < mPositions.size(); ++channel) *sample++ = Sample(channel);
    mAsked += frames;
    data.chunk->offset = 0;
    data.chunk->stride = static_cast<int32_t>(stride);
    data.chunk->size = static_cast<uint32_t>(frames) * stride;
    pw_stream_queue_buffer(mStream, buffer);
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
    CLI::App command("Plays a tone, or a count of frames, until SIGTERM.");
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
    CLI11_PARSE(command, argc, argv);
    if (options.mChild) PlayInChild();
    pw_init(nullptr, nullptr);
    Player(options).Run();
    return 0;
}
