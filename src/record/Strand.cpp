#include "record/Strand.h"

#include <algorithm>

namespace record {

void Strand::Put(uint64_t frame, const float* samples, uint32_t frames) CORVANE_REALTIME
{
    const uint64_t end = mEnd.load(std::memory_order_relaxed);  // our own
    const uint64_t late = frame < end ? std::min<uint64_t>(end - frame, frames) : 0;
    if (late == frames) return;
    const FrameSpan piece{frame + late, frames - late};
    const uint64_t put = mPut.load(std::memory_order_relaxed);  // our own
    const bool hasRoom = put - mTaken.load(std::memory_order_acquire) < kMostPieces;
    if (hasRoom && mFrames.Write(samples + late * Channels(), piece.mFrames)) {
        mPieces[put % kMostPieces] = piece;
        mPut.store(put + 1, std::memory_order_release);
    } else {
        mRefusedEnd.store(piece.End(), std::memory_order_relaxed);
    }
    mEnd.store(piece.End(), std::memory_order_release);
}

FrameSpan* Strand::FrontPiece() noexcept
{
    if (mHasFront) return &mFront;
    const uint64_t taken = mTaken.load(std::memory_order_relaxed);  // our own
    if (mPut.load(std::memory_order_acquire) == taken) return nullptr;
    mFront = mPieces[taken % kMostPieces];
    mHasFront = true;
    return &mFront;
}

void Strand::NoteTaken(FrameSpan& piece, uint64_t frames) noexcept
{
    piece.mStart += frames;
    piece.mFrames -= frames;
    if (piece.mFrames > 0) return;
    mHasFront = false;
    mTaken.store(mTaken.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

void Strand::DropPieceUntil(FrameSpan& piece, uint64_t frame)
{
    const uint64_t drop = std::min(frame - piece.mStart, piece.mFrames);
    mFrames.Skip(drop);
    NoteTaken(piece, drop);
}

void Strand::Take(const FrameSpan& span, float* samples, std::vector<FrameSpan>& missing)
{
    uint64_t at = span.mStart;
    while (at < span.End()) {
        FrameSpan* piece = FrontPiece();
        if (piece && piece->mStart < at) {
            DropPieceUntil(*piece, at);
            continue;
        }
        float* const place = samples + (at - span.mStart) * Channels();
        const uint64_t next = piece ? std::min(piece->mStart, span.End()) : span.End();
        if (next > at) {
            std::fill_n(place, (next - at) * Channels(), 0.0F);
            missing.push_back({at, next - at});
            at = next;
            continue;
        }
        const uint64_t frames = std::min(piece->mFrames, span.End() - at);
        mFrames.Read(place, frames);
        NoteTaken(*piece, frames);
        at += frames;
    }
}

}  // namespace record
