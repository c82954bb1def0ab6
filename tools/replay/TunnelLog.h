#pragma once

#include <cstdint>
#include <vector>

namespace android {

/**
 * What the library's messages tell about corrections: which of the two a decision was, and how many
 * bytes of silence were written and of audio discarded. Nothing else that a host sees tells them
 * apart; the clock's record holds the position each decision was taken with, and re-anchors.
 *
 * The library logs them inside the write that they belong to, on the thread that writes. So the
 * writer makes this object, and takes the lines when a write has returned. Only the words that a
 * message begins with and its numbers are read.
 * Threads: the writer's own, one object at a time.
 */
class TunnelLog {
public:
    struct Line {
        enum class Kind {
            SILENCE,
            DROP,     // from here on
            DROPPED,  // in fact
            MISSED,   // payload or silence that found no room in time
        };
        Kind kind;
        int64_t ms;         // of a SILENCE or a DROP
        int64_t byteCount;  // of all but a DROP
    };

    TunnelLog();  // listens to this thread from now on
    ~TunnelLog();
    TunnelLog(const TunnelLog&) = delete;
    TunnelLog& operator=(const TunnelLog&) = delete;

    /** The lines since the last take. */
    std::vector<Line> take();

    /** While one lives, its thread's messages are not printed: they come from the tool's own use of
     *  the parser and would stand there twice. */
    class Mute {
    public:
        Mute();
        ~Mute();
        Mute(const Mute&) = delete;
        Mute& operator=(const Mute&) = delete;
    };

private:
    static bool onMessage(const char* tag, const char* text);
    void read(const char* text);

    static thread_local TunnelLog* sListener;
    static thread_local bool sIsMuted;

    std::vector<Line> mLines;
};

}  // namespace android
