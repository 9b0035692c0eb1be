// Why the orders are right, and why no weaker ones are.
//
// 1. What the span promises is there. The writer copies samples and then moves the index (release); the reader
//    loads the index (acquire) before it copies. Frames that were stored before that index moved are seen whole.
//
// 2. An entry is one publication or it is refused. The writer comes back to an entry after 32 publications. It then
//    stores the counter first and the times after it (release). A reader that loads a time of the later
//    publication (acquire) therefore also sees its counter, which is not the index it holds, and tries again. Were
//    the counter stored last, a reader held up for 31 publications could accept one time of each.
//
// 3. A copy that was overwritten is refused. Before the writer overwrites frames it publishes a span without them,
//    and a release fence keeps the samples behind that. Should the reader's copy contain one byte of theirs, the
//    acquire fence behind the copy makes its second look at the index see that span or a later one, and the
//    status is a behind one. A release store of the index alone orders what stands before it, not the samples
//    after it: hence fences. On x86 they cost nothing.
//
// 4. The writer's own loads are relaxed: nobody else stores. Nor does the index need a compare-and-swap, which with
//    one writer is no contest, and would wait for all samples to leave the processor, twice a store: a quarter of
//    its time. Reset from the reader's side may be undone by a store in flight, and that is accepted.
//
// The samples themselves are no atomics (docs/decisions/0004-ring-sample-copy.md).
#include "capture/buffers/CARingBuffer.inl"

template class BasicRingBuffer<RingMemory>;
