// What a command has to say, once: readable lines as they come, or one JSON document at the end.
#ifndef PERILINK_TOOLS_PERICTL_REPORT_H_
#define PERILINK_TOOLS_PERICTL_REPORT_H_

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

namespace perictl {

using Json = nlohmann::ordered_json;

class Report {
 public:
  explicit Report(std::ostream& out) : out_(out) {}

  // Chosen by the command line, before the first line.
  void UseJson(bool json) { json_ = json; }
  bool json() const { return json_; }

  // What follows stands under `title`, and in the document's member `key`.
  void Section(const std::string& key, const std::string& title);
  // One fact: the line "label  text", and the member `key` with the value.
  void Fact(const std::string& key, const std::string& label, const std::string& text, Json value);
  // One more entry of a list: the line, and the value appended to the member `key`.
  void Item(const std::string& key, const std::string& text, Json value);
  // A line for people only.
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

  std::ostream& out_;
  bool json_ = false;
  bool streamed_ = false;
  std::string section_;
  Json document_ = Json::object();
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_REPORT_H_
