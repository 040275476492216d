#include "progress.h"

#include <algorithm>
#include <cstdio>

#include "system.h"

namespace perictl {

Progress::Progress(std::string what) : what_(std::move(what)), terminal_(IsTerminal(stderr)) {}

Progress::~Progress() {
  Hide();
}

void Progress::Hide() {
  if (shown_ >= 0) std::fprintf(stderr, "\r\033[K");
  shown_ = -1;
}

void Progress::Show(int percent) {
  percent = std::clamp(percent, 0, 100);
  if (!terminal_ || percent == shown_) return;
  shown_ = percent;
  constexpr int kWidth = 30;
  const std::string bar(static_cast<size_t>(percent * kWidth / 100), '#');
  std::fprintf(stderr, "\r%s [%-*s] %3d %%", what_.c_str(), kWidth, bar.c_str(), percent);
}

}  // namespace perictl
