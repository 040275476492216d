#include "terminal/progress.h"

#include <algorithm>
#include <cstdio>

#include "terminal/terminal.h"

namespace perictl {
namespace {

constexpr size_t kWidestBar = 30;
constexpr size_t kNarrowestBar = 5;

// "writing [#####     ]  45 %", or without the bar where there is no room for one.
std::string Line(const std::string& what, int percent, size_t width) {
  char number[16];
  std::snprintf(number, sizeof number, " %3d %%", percent);
  const size_t taken = what.size() + sizeof " []" - 1 + 6;
  // The last column stays free: some terminals go to the next line with it.
  if (taken + kNarrowestBar + 1 > width) return (what + number).substr(0, width - 1);
  const size_t bar = std::min(kWidestBar, width - 1 - taken);
  const size_t filled = bar * static_cast<size_t>(percent) / 100;
  return what + " [" + std::string(filled, '#') + std::string(bar - filled, ' ') + "]" + number;
}

}  // namespace

Progress::Progress(std::string what) : what_(std::move(what)) {}

Progress::~Progress() {
  Hide();
}

void Progress::Hide() {
  if (shown_ >= 0) std::fprintf(stderr, "\r\033[K");
  shown_ = -1;
}

void Progress::Show(int percent) {
  percent = std::clamp(percent, 0, 100);
  if (!ErrorTerminal().is_terminal || percent == shown_) return;
  shown_ = percent;
  std::fprintf(stderr, "\r%s", Line(what_, percent, ErrorTerminal().width).c_str());
}

}  // namespace perictl
