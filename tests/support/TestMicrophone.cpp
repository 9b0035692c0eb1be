// corvane-test-microphone: an input device whose crystal is off by so many ppm. It hears a click at every half second
// of the host clock. Prints a line when it is there; ends on SIGTERM with a line that says
// how many frames the server did not take.
#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>
#include <spa/utils/result.h>
#include <CLI/CLI.hpp>

#include <signal.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

namespace {

constexpr uint64_t kSecondNanos = 1'000'000'000;
constexpr uint64_t kClickNanos = kSecondNanos / 2;

struct Options {
    std::string mName = "test-microphone";
    double mPPM = 0;
    unsigned mRateHz = 48000;
    unsigned mQuantum = 512;
};

uint64_t HostNanos()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * kSecondNanos + static_cast<uint64_t>(now.tv_nsec);
}

class Microphone {
public:
    explicit Microphone(const Options& options);
    ~Microphone();
    void Run() { pw_main_loop_run(mLoop); }

private:
    void OnState(pw_stream_state state);
    void Tick();
    void Arm();
    void Process();
    // True moment of a frame since the device started: its crystal is not the host's.
    uint64_t MomentOf(uint64_t frame) const
    {
        return mStartNanos + static_cast<uint64_t>(static_cast<double>(frame) * 1e9 / mTrueRateHz);
    }

    static const pw_stream_events kEvents;

    const Options& mOptions;
    const double mTrueRateHz;
    pw_main_loop* mLoop;
    pw_stream* mStream;
    spa_source* mTimer;
    std::atomic<spa_io_clock*> mClock{nullptr};        // stored by the loop's thread, as it ticks
    std::atomic<spa_io_position*> mPosition{nullptr};  // the same
    bool mRuns = false;
    uint64_t mStartNanos = 0;
    uint64_t mFrame = 0;            // of the next cycle
    std::atomic<uint64_t> mDue{0};  // of the cycle in hand; stored by the loop, loaded by the data thread
    uint64_t mTaken = 0;            // the data thread's
};

const pw_stream_events Microphone::kEvents = {
    .version = PW_VERSION_STREAM_EVENTS,
    .state_changed = [](void* self, pw_stream_state, pw_stream_state state,
                        const char*) { static_cast<Microphone*>(self)->OnState(state); },
    .io_changed =
        [](void* self, uint32_t id, void* area, uint32_t) {
            auto* microphone = static_cast<Microphone*>(self);
            if (id == SPA_IO_Clock) microphone->mClock.store(static_cast<spa_io_clock*>(area));
            if (id == SPA_IO_Position) microphone->mPosition.store(static_cast<spa_io_position*>(area));
        },
    .process = [](void* self) { static_cast<Microphone*>(self)->Process(); },
};

Microphone::Microphone(const Options& options)
    : mOptions(options), mTrueRateHz(options.mRateHz * (1 + options.mPPM * 1e-6)), mLoop(pw_main_loop_new(nullptr))
{
    pw_loop* loop = pw_main_loop_get_loop(mLoop);
    const auto quit = [](void* self, int) { pw_main_loop_quit(static_cast<Microphone*>(self)->mLoop); };
    for (const int signal : {SIGTERM, SIGINT}) pw_loop_add_signal(loop, signal, quit, this);
    mTimer = pw_loop_add_timer(
        loop, [](void* self, uint64_t) { static_cast<Microphone*>(self)->Tick(); }, this);
    const std::string quantum = std::to_string(options.mQuantum);
    mStream = pw_stream_new_simple(
        loop, options.mName.c_str(),
        pw_properties_new(PW_KEY_MEDIA_CLASS, "Audio/Source", PW_KEY_NODE_NAME, options.mName.c_str(),
                          PW_KEY_NODE_DESCRIPTION, options.mName.c_str(), PW_KEY_NODE_FORCE_QUANTUM, quantum.c_str(),
                          PW_KEY_PRIORITY_DRIVER, "3000", PW_KEY_PRIORITY_SESSION, "2000", nullptr),
        &kEvents, this);
    std::array<uint8_t, 1024> space;
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, space.data(), space.size());
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32;
    format.rate = options.mRateHz;
    format.channels = 1;
    format.position[0] = SPA_AUDIO_CHANNEL_MONO;
    const spa_pod* pod = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format);
    pw_stream_connect(
        mStream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS | PW_STREAM_FLAG_DRIVER),
        &pod, 1);
}

Microphone::~Microphone()
{
    pw_stream_destroy(mStream);
    const uint64_t taken = mTaken + mOptions.mQuantum;  // the last cycle is not waited for
    std::printf("missed %llu\n", static_cast<unsigned long long>(mFrame > taken ? mFrame - taken : 0));
    pw_main_loop_destroy(mLoop);
}

void Microphone::OnState(pw_stream_state state)
{
    if (state == PW_STREAM_STATE_PAUSED && !mRuns) {
        std::puts("playing");
        std::fflush(stdout);
    }
    mRuns = state == PW_STREAM_STATE_STREAMING;
    if (!mRuns) return;
    mStartNanos = HostNanos();
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

void Microphone::Process()
{
    pw_buffer* buffer = pw_stream_dequeue_buffer(mStream);
    if (buffer == nullptr) return;
    spa_data& data = buffer->buffer->datas[0];
    const uint64_t room = data.maxsize / sizeof(float);
    const uint64_t frames = buffer->requested == 0 ? std::min<uint64_t>(room, mOptions.mQuantum)
                                                   : std::min<uint64_t>(buffer->requested, room);
    auto* sample = static_cast<float*>(data.data);
    const uint64_t first = mDue.load();  // by the clock: the first cycle of all may come without a call
    for (uint64_t frame = first; frame < first + frames; ++frame)
        *sample++ = MomentOf(frame) / kClickNanos != MomentOf(frame - 1) / kClickNanos ? 0.9f : 0.0f;
    mTaken += frames;
    data.chunk->offset = 0;
    data.chunk->stride = sizeof(float);
    data.chunk->size = static_cast<uint32_t>(frames * sizeof(float));
    pw_stream_queue_buffer(mStream, buffer);
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App command("An input device that hears a click at every half second of the host clock.");
    command.add_option("--name", options.mName, "name of the device");
    command.add_option("--ppm", options.mPPM, "its crystal's error");
    command.add_option("--rate", options.mRateHz, "nominal, in Hz");
    command.add_option("--quantum", options.mQuantum, "frames a cycle");
    CLI11_PARSE(command, argc, argv);
    pw_init(nullptr, nullptr);
    Microphone(options).Run();
    return 0;
}
