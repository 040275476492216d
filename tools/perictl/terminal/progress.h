// How far long work has come: one line that is drawn over on a terminal, nothing in a pipe.
#ifndef PERILINK_TOOLS_PERICTL_TERMINAL_PROGRESS_H_
#define PERILINK_TOOLS_PERICTL_TERMINAL_PROGRESS_H_

#include <string>

namespace perictl {

class Progress {
 public:
  explicit Progress(std::string what);
  ~Progress();  // removes the line
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Draws the line if it would change. 0 to 100.
  void Show(int percent);
  // Makes room for lines of another kind; the next Show draws it again.
  void Hide();

 private:
  const std::string what_;
  int shown_ = -1;
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_TERMINAL_PROGRESS_H_
