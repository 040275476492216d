#include "terminal/report.h"

#include <algorithm>

namespace perictl {
namespace {

constexpr size_t kLabelWidth = 22;

// What a device or a file name holds need not be UTF-8.
std::string Dump(const Json& value, int indent) {
  return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

Json& Report::Place() {
  if (section_.empty()) return document_;
  return in_list_ ? document_[section_].back() : document_[section_];
}

void Report::Section(const std::string& key, const std::string& title) {
  section_ = key;
  in_list_ = false;
  if (!json_) out_ << Styled(OutputTerminal(), Style::kHeading, Printable(title)) << '\n';
}

void Report::Entry(const std::string& key, const std::string& title) {
  Section(key, title);
  in_list_ = true;
  document_[key].push_back(Json::object());
}

std::string Report::Padded(const std::string& label) {
  const size_t gap = kLabelWidth - std::min(kLabelWidth - 1, label.size());
  return "  " + Printable(label) + std::string(gap, ' ');
}

void Report::Fact(const std::string& key, const std::string& label, const std::string& text,
                  Json value) {
  Data(key, std::move(value));
  Line(label, text);
}

void Report::Data(const std::string& key, Json value) {
  if (json_) Place()[key] = std::move(value);
}

void Report::Item(const std::string& key, const std::string& text, Json value) {
  if (json_) Place()[key].push_back(std::move(value));
  Remark(text);
}

void Report::Line(const std::string& label, const std::string& text) {
  if (!json_) out_ << Padded(label) << Printable(text) << '\n';
}

void Report::ChangeLine(const std::string& label, const std::string& before,
                        const std::string& after) {
  if (json_) return;
  const Terminal& terminal = OutputTerminal();
  out_ << Padded(label) << Styled(terminal, Style::kOld, Printable(before)) << " -> "
       << Styled(terminal, Style::kNew, Printable(after)) << '\n';
}

void Report::Remark(const std::string& text) {
  if (!json_) out_ << "  " << Printable(text) << '\n';
}

void Report::Event(const std::string& text, const Json& value) {
  streamed_ = true;
  out_ << (json_ ? Dump(value, -1) : Printable(text)) << std::endl;
}

void Report::Finish() {
  if (json_ && !(streamed_ && document_.empty()))
    out_ << Dump(document_, streamed_ ? -1 : 2) << '\n';
  out_.flush();
}

}  // namespace perictl
