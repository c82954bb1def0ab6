#include "tools/report/MeterDisplay.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tools/text/Decibels.h"
#include "tools/text/PrintTo.h"
#include "tools/text/Utf8.h"

namespace android {

namespace {

constexpr std::chrono::milliseconds kInterval{100};
constexpr size_t kBarCells = 30;
constexpr double kBarDecibels = 60.0;  // from the left end to full scale
constexpr size_t kNameColumns = 24;

size_t cellsOf(double level) {
    const double share = level > 0.0 ? 1.0 + decibelsOf(level) / kBarDecibels : 0.0;
    return static_cast<size_t>(std::lround(std::clamp(share, 0.0, 1.0) * kBarCells));
}

std::string bar(size_t solidCells, size_t peakCells) {
    std::string cells(kBarCells, ' ');
    std::fill_n(cells.begin(), std::max(solidCells, peakCells), '-');
    std::fill_n(cells.begin(), solidCells, '#');
    return "[" + cells + "]";
}

std::string channelLine(const char* name, const Levels& levels, size_t channel) {
    const double rms = levels.rms(channel);
    const double peak = levels.peaks[channel];
    return std::string(name) + " " + bar(cellsOf(rms), cellsOf(peak)) + " peak " +
           decibelText(peak) + ", RMS " + decibelText(rms);
}

winsize terminalSize() {
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        size.ws_col = 80;
        size.ws_row = 24;
    }
    return size;
}

}  // namespace

bool MeterDisplay::isPossible() {
    const char* terminal = getenv("TERM");
    return isatty(STDERR_FILENO) != 0 && terminal != nullptr && std::string(terminal) != "dumb";
}

MeterDisplay::MeterDisplay(const MixSession& session, const std::vector<MixInput*>& inputs,
                           LevelMeter& meter)
    : mSession(session), mInputs(inputs), mMeter(meter) {}

void MeterDisplay::draw(const std::string& headline) {
    const auto now = std::chrono::steady_clock::now();
    if (now < mNextDrawing) {
        return;
    }
    mNextDrawing = now + kInterval;
    const Levels levels = mMeter.takeRecent();
    std::vector<std::string> lines = {headline, channelLine("L", levels, 0),
                                      channelLine("R", levels, 1)};
    for (size_t index = 0; index < mInputs.size(); ++index) {
        lines.push_back(inputLine(index));
    }
    // A line that wraps, or one below the last row, would leave the cursor in the wrong place.
    const winsize size = terminalSize();
    lines.resize(
        std::min<size_t>(lines.size(), std::max(size.ws_row, static_cast<unsigned short>(2)) - 1u));
    std::string text;
    for (const std::string& line : lines) {
        text += line.substr(0, size.ws_col - 1u) + "\x1b[K\n";
    }
    printTo(stderr, "\r{}\x1b[{}A", text, lines.size());
    fflush(stderr);
}

std::string MeterDisplay::inputLine(size_t index) const {
    const MixInput& input = *mInputs[index];
    std::string name = terminalText(std::filesystem::path(input.spec.path).filename().string());
    name.resize(kNameColumns, ' ');
    if (mSession.board().input(index).isPaused) {
        return name + " ended";
    }
    const double fill = mSession.cycle().bufferFill(index);
    const auto cells = static_cast<size_t>(std::lround(fill * kBarCells));
    return fmt::format("{} buffer {} {:3.0f} %", name, bar(cells, cells), fill * 100.0);
}

void MeterDisplay::clear() const {
    printTo(stderr, "\r\x1b[J");
    fflush(stderr);
}

}  // namespace android
