// Unseen: a stretch of code that the race detector passes over.
// Why: the simulated devices and the script live outside the program under test. What they do to each other
// under the gate must neither be reported nor order the program's own threads.
#pragma once

#if defined(__SANITIZE_THREAD__)
extern "C" {
void AnnotateIgnoreReadsBegin(const char* file, int line);
void AnnotateIgnoreReadsEnd(const char* file, int line);
void AnnotateIgnoreWritesBegin(const char* file, int line);
void AnnotateIgnoreWritesEnd(const char* file, int line);
void AnnotateIgnoreSyncBegin(const char* file, int line);
void AnnotateIgnoreSyncEnd(const char* file, int line);
}
#endif

namespace platform::machine::simulated {

/// For the life of the object, on its thread. May not span a hand-over of the turn to the program's code.
class Unseen {
public:
#if defined(__SANITIZE_THREAD__)
    Unseen()
    {
        AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
        AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
        AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
    }
    ~Unseen()
    {
        AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
        AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
        AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
    }
#else
    Unseen() {}
    ~Unseen() {}
#endif
    Unseen(const Unseen&) = delete;
    Unseen& operator=(const Unseen&) = delete;
};

}  // namespace platform::machine::simulated
