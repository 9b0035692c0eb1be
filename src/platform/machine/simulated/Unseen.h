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

#if defined(__SANITIZE_THREAD__)
inline void BeginUnseen()
{
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
}
inline void EndUnseen()
{
    AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
}
#else
inline void BeginUnseen() {}
inline void EndUnseen() {}
#endif

/// For the life of the object, on its thread.
class Unseen {
public:
    Unseen() { BeginUnseen(); }
    ~Unseen() { EndUnseen(); }
    Unseen(const Unseen&) = delete;
    Unseen& operator=(const Unseen&) = delete;
};

/// The program's own code, called from inside one Unseen and no more.
class Seen {
public:
    Seen() { EndUnseen(); }
    ~Seen() { BeginUnseen(); }
    Seen(const Seen&) = delete;
    Seen& operator=(const Seen&) = delete;
};

}  // namespace platform::machine::simulated
