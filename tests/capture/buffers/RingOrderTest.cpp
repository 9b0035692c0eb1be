// The ring's own code under every weak order that the language allows: a model checker stands in for the memory
// that the two threads share, and runs it in a million schedules a model.
#include "capture/buffers/CARingBuffer.inl"

#include <cstdio>
#include <cstdlib>

// Last: it makes macros of the names of the memory orders.
#include <relacy/relacy.hpp>

namespace {

rl::memory_order Order(std::memory_order order)
{
    switch (order) {
        case std::memory_order::relaxed:
            return rl::mo_relaxed;
        case std::memory_order::acquire:
            return rl::mo_acquire;
        case std::memory_order::release:
            return rl::mo_release;
        default:
            return rl::mo_seq_cst;
    }
}

constexpr unsigned kWords = 2;  // frames that the ring holds, a word each

// Samples are relaxed atomic words beside the ring's storage, found by their place in it: what is torn or old
// comes out as a value, and the span has to refuse it.
struct ExploredMemory {
    static constexpr uint32_t kTimeBoundsEntries = 2;  // so that few steps of the writer come round

    template <typename T>
    class Atomic {
    public:
        Atomic(T value) { mValue.store(value, rl::mo_relaxed, $); }
        T load(std::memory_order order) const { return mValue.load(Order(order), $); }
        void store(T value, std::memory_order order) { mValue.store(value, Order(order), $); }

    private:
        rl::atomic<T> mValue;
    };

    static rl::atomic<uint32_t>* sWords;

    // The channel's samples follow the table of one pointer.
    static rl::atomic<uint32_t>& Word(const std::byte* at)
    {
        return sWords[reinterpret_cast<uintptr_t>(at) / 4 % kWords];
    }

    static void CopyIn(std::byte* to, const void* from, size_t bytes)
    {
        for (size_t i = 0; i < bytes / 4; ++i)
            Word(to + 4 * i).store(static_cast<const uint32_t*>(from)[i], rl::mo_relaxed, $);
    }
    static void CopyOut(void* to, const std::byte* from, size_t bytes)
    {
        for (size_t i = 0; i < bytes / 4; ++i)
            static_cast<uint32_t*>(to)[i] = Word(from + 4 * i).load(rl::mo_relaxed, $);
    }
    static void Silence(std::byte* to, size_t bytes)
    {
        for (size_t i = 0; i < bytes / 4; ++i) Word(to + 4 * i).store(0, rl::mo_relaxed, $);
    }
    static void Fence(std::memory_order order) { rl::atomic_thread_fence(Order(order), $); }
};

rl::atomic<uint32_t>* ExploredMemory::sWords = nullptr;

// A frame's word tells its time and is never 0.
uint32_t WordAt(int64_t time)
{
    return static_cast<uint32_t>(time) + 100;
}

struct Ring {
    rl::atomic<uint32_t> mWords[kWords];
    BasicRingBuffer<ExploredMemory> mRing;

    void Prepare()
    {
        ExploredMemory::sWords = mWords;
        for (auto& word : mWords) word.store(0, rl::mo_relaxed, $);
        mRing.Allocate(1, 4, kWords);
    }
    void Store(int64_t time, uint32_t frames)
    {
        uint32_t words[kWords];
        for (uint32_t i = 0; i < frames; ++i) words[i] = WordAt(time + i);
        const AudioBufferList list{1, {{1, frames * 4, words}}};
        mRing.Store(&list, frames, time);
    }
    void FetchAndCheck(int64_t time, uint32_t frames)
    {
        uint32_t words[kWords] = {};
        AudioBufferList list{1, {{1, frames * 4, words}}};
        if (mRing.Fetch(&list, frames, time, false) != RingOK) return;
        for (uint32_t i = 0; i < frames; ++i) RL_ASSERT(words[i] == WordAt(time + i));
    }
};

// The models are small on purpose: the fewer steps a fault needs, the more schedules show it.

// The writer overwrites the oldest frame while the reader copies it.
struct ALappedCopyIsRefused : rl::test_suite<ALappedCopyIsRefused, 2>, Ring {
    void before()
    {
        Prepare();
        Store(0, 2);
    }
    void thread(unsigned index)
    {
        if (index == 0) return Store(2, 1);
        FetchAndCheck(0, 1);
        FetchAndCheck(2, 1);
    }
};

// The writer steps back in time, over a frame that is valid.
struct AStepBackIsRefused : rl::test_suite<AStepBackIsRefused, 2>, Ring {
    void before()
    {
        Prepare();
        Store(10, 2);
    }
    void thread(unsigned index)
    {
        if (index == 0) return Store(8, 1);
        FetchAndCheck(10, 1);
        FetchAndCheck(8, 1);
    }
};

// The writer comes round to the entry that a reader holds; the times of each publication differ by one constant.
struct AnEntryIsOnePublication : rl::test_suite<AnEntryIsOnePublication, 2>, Ring {
    void before()
    {
        Prepare();
        mRing.SetTimeBounds(1, 1001);
    }
    void thread(unsigned index)
    {
        if (index == 0) {
            for (int64_t start = 2; start <= 4; ++start) mRing.SetTimeBounds(start, 1000 + start);
            return;
        }
        int64_t start, end;
        if (mRing.GetTimeBounds(start, end) == RingOK) RL_ASSERT(end - start == 1000);
    }
};

template <typename Model>
bool Explore(const char* name, rl::iteration_t schedules)
{
    rl::test_params parameters;
    parameters.iteration_count = schedules;
    parameters.search_type = rl::random_scheduler_type;
    const bool right = rl::simulate<Model>(parameters);
    std::printf("%s: %s\n", name, right ? "right" : "WRONG");
    return right;
}

}  // namespace

int main(int count, char** arguments)
{
    const rl::iteration_t schedules = count > 1 ? std::strtoul(arguments[1], nullptr, 10) : 1'000'000;
    const bool right = Explore<ALappedCopyIsRefused>("a lapped copy is refused", schedules) &
                       Explore<AStepBackIsRefused>("a step back is refused", schedules) &
                       Explore<AnEntryIsOnePublication>("an entry is one publication", schedules);
    return right ? 0 : 1;
}
