#include "report.h"

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
  return section_.empty() ? document_ : document_[section_];
}

void Report::Section(const std::string& key, const std::string& title) {
  section_ = key;
  if (!json_) out_ << title << '\n';
}

void Report::Fact(const std::string& key, const std::string& label, const std::string& text,
                  Json value) {
  if (json_) {
    Place()[key] = std::move(value);
    return;
  }
  const std::string gap(kLabelWidth - std::min(kLabelWidth - 1, label.size()), ' ');
  out_ << "  " << label << gap << text << '\n';
}

void Report::Item(const std::string& key, const std::string& text, Json value) {
  if (json_) {
    Place()[key].push_back(std::move(value));
    return;
  }
  out_ << "  " << text << '\n';
}

void Report::Remark(const std::string& text) {
  if (!json_) out_ << "  " << text << '\n';
}

void Report::Event(const std::string& text, const Json& value) {
  streamed_ = true;
  out_ << (json_ ? Dump(value, -1) : text) << std::endl;
}

void Report::Finish() {
  if (json_ && !(streamed_ && document_.empty()))
    out_ << Dump(document_, streamed_ ? -1 : 2) << '\n';
  out_.flush();
}

}  // namespace perictl
