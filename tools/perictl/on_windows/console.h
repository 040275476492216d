// What perictl prints on a console, whatever its code page and the C runtime's.
#ifndef PERILINK_TOOLS_PERICTL_CONSOLE_H_
#define PERILINK_TOOLS_PERICTL_CONSOLE_H_

// Order matters: windows.h first.
#include <windows.h>

#include <ostream>
#include <streambuf>
#include <string>

namespace perictl {

// While it lives, what the stream prints as UTF-8 goes to its console as UTF-16. Does nothing where
// the handle is no console's.
class ConsoleStream : private std::streambuf {
 public:
  ConsoleStream(std::ostream& stream, DWORD standard_handle);
  ~ConsoleStream() override;
  ConsoleStream(const ConsoleStream&) = delete;
  ConsoleStream& operator=(const ConsoleStream&) = delete;

 private:
  int_type overflow(int_type unit) override;
  std::streamsize xsputn(const char* text, std::streamsize count) override;
  int sync() override;

  std::ostream& stream_;
  const HANDLE console_;
  std::streambuf* before_ = nullptr;
  std::string pending_;
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_CONSOLE_H_
