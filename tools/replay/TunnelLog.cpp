#include "tools/replay/TunnelLog.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "tools/host/LogSink.h"

namespace android {

namespace {

struct Opening {
    const char* words;
    TunnelLog::Line::Kind kind;
};

// Longer ones first: each is asked in turn.
constexpr Opening kOpenings[] = {
    {"onBurstPayloadParsed, drop ", TunnelLog::Line::Kind::DROPPED},
    {"write, some bytes ", TunnelLog::Line::Kind::MISSED},
    {"fill, ", TunnelLog::Line::Kind::SILENCE},
    {"drop, ", TunnelLog::Line::Kind::DROP},
};

/** The first number in `text`, which is moved behind it. */
int64_t nextNumber(const char*& text) {
    while (*text != '\0' && !isdigit(static_cast<unsigned char>(*text))) {
        ++text;
    }
    char* end = nullptr;
    const int64_t number = std::strtoll(text, &end, 10);
    text = end;
    return number;
}

}  // namespace

thread_local TunnelLog* TunnelLog::sListener = nullptr;
thread_local bool TunnelLog::sIsMuted = false;

TunnelLog::TunnelLog() {
    sListener = this;
    setLogTap(onMessage);
}

TunnelLog::~TunnelLog() {
    setLogTap(nullptr);
    sListener = nullptr;
}

bool TunnelLog::onMessage(const char* /*tag*/, const char* text) {
    if (sListener != nullptr && !sIsMuted) {
        sListener->read(text);
    }
    return !sIsMuted;
}

void TunnelLog::read(const char* text) {
    for (const Opening& opening : kOpenings) {
        const size_t length = strlen(opening.words);
        if (strncmp(text, opening.words, length) != 0) {
            continue;
        }
        const char* rest = text + length;
        const bool hasMs = opening.kind == Line::Kind::SILENCE || opening.kind == Line::Kind::DROP;
        const int64_t ms = hasMs ? nextNumber(rest) : 0;
        const int64_t byteCount = opening.kind != Line::Kind::DROP ? nextNumber(rest) : 0;
        mLines.push_back({.kind = opening.kind, .ms = ms, .byteCount = byteCount});
        return;
    }
}

std::vector<TunnelLog::Line> TunnelLog::take() {
    std::vector<Line> lines;
    lines.swap(mLines);
    return lines;
}

TunnelLog::Mute::Mute() {
    sIsMuted = true;
}

TunnelLog::Mute::~Mute() {
    sIsMuted = false;
}

}  // namespace android
