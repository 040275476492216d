// What a command has to say, once: readable lines as they come, or one JSON document at the end.
// Whatever a text holds, it can't steer the terminal.
#ifndef PERILINK_TOOLS_PERICTL_TERMINAL_REPORT_H_
#define PERILINK_TOOLS_PERICTL_TERMINAL_REPORT_H_

#include <ostream>
#include <string>
#include <string_view>

#include "common/json_text.h"
#include "terminal/terminal.h"

namespace perictl {

using Json = perilink::tools::Json;

class Report {
 public:
  explicit Report(std::ostream& out) : out_(out) {}

  // Chosen by the command line, before the first line.
  void UseJson(bool json) { json_ = json; }
  bool json() const { return json_; }

  // What follows stands under `title`, and in the document's member `key`.
  void Section(const std::string& key, const std::string& title);
  // The same, in one more entry of the document's list `key`.
  void Entry(const std::string& key, const std::string& title);
  // One fact: the line "label  text", and the member `key` with the value.
  void Fact(const std::string& key, const std::string& label, const std::string& text, Json value);
  // A member of the document alone.
  void Data(const std::string& key, Json value);
  // One more entry of a list: the line, and the value appended to the member `key`.
  void Item(const std::string& key, const std::string& text, Json value);
  // A line for people only: "label  text".
  void Line(const std::string& label, const std::string& text);
  // The line "label  before -> after".
  void ChangeLine(const std::string& label, const std::string& before, const std::string& after);
  void Remark(const std::string& text);

  // What follows are events, and whatever the report holds besides comes as one line too.
  void BeginEvents() { streamed_ = true; }
  // For watches, which have no end: the line, or the value as a JSON object of a line, at once.
  void Event(const std::string& text, const Json& value);

  // Whether the output can't be written any more.
  bool Lost() const { return !out_; }

  // Ends the report, with the document if it is one. Nothing may follow.
  void Finish();

 private:
  Json& Place();
  static std::string Padded(const std::string& label);

  std::ostream& out_;
  bool json_ = false;
  bool streamed_ = false;
  std::string section_;
  bool in_list_ = false;  // the section is a list, in whose last entry we are
  Json document_ = Json::object();
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_TERMINAL_REPORT_H_
