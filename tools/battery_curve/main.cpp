// Draws how the battery optimiser smooths a level: a virtual mouse discharges, charges and
// discharges again, in virtual time, and the optimiser polls it as the server would.
//
//   battery_curve FILE.svg           writes the picture
//   battery_curve --check FILE.svg   exits with 1 if the file is not that picture
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "battery/optimizer.h"
#include "perilink_platform/world.h"
#include "platform/win32.h"
#include "sim/mouse.h"

namespace perilink {
namespace {

constexpr uint32_t kPassMs = 100;
constexpr double kStartPercent = 84;
constexpr double kDischargePerHour = 13;
constexpr double kChargePerHour = 36;
constexpr uint8_t kJitterPercent = 4;
constexpr int kMinutes = 8 * 60;
constexpr int kChargerOn = 4 * 60;
constexpr int kChargerOff = 6 * 60 + 30;

struct Sample {
  int minute;
  int raw;
  int shown;
};

// What the host was told last; -1 before that.
int shown_level = -1;

void PERILINK_CALL OnReport(const uint8_t*, uint32_t, const uint8_t* data, uint32_t) {
  shown_level = data[0];
}

sim::DeviceOptions MouseOptions() {
  sim::DeviceOptions options = sim::Mouse::Options();
  options.battery.percent = kStartPercent;
  options.battery.discharge_percent_per_hour = kDischargePerHour;
  options.battery.charge_percent_per_hour = kChargePerHour;
  options.battery.jitter_percent = kJitterPercent;
  return options;
}

// The server loop's battery work, for one minute.
void RunForAMinute(BatteryOptimizer& optimizer) {
  for (const uint64_t end = GetTickCount64() + 60'000; GetTickCount64() < end; Sleep(kPassMs))
    optimizer.Drive([]() -> ServerReportCallback { return &OnReport; });
}

std::vector<Sample> Run() {
  sim::Mouse mouse(MouseOptions());
  mouse.SetLogging(false);
  mouse.Plug();
  BatteryOptimizer& optimizer = BatteryOptimizer::Instance();
  optimizer.Connect(mouse.CommandPath());
  std::vector<Sample> samples;
  for (int minute = 0; minute < kMinutes; ++minute) {
    if (minute == kChargerOn || minute == kChargerOff) mouse.SetCharging(minute == kChargerOn);
    RunForAMinute(optimizer);
    samples.push_back({minute, mouse.battery().Read().level, shown_level});
  }
  return samples;
}

// ---- The picture ------------------------------------------------------------------------------

constexpr int kWidth = 900;
constexpr int kHeight = 360;
constexpr int kLeft = 50;
constexpr int kTop = 40;
constexpr int kPlotWidth = 830;
constexpr int kPlotHeight = 270;

double X(int minute) {
  return kLeft + static_cast<double>(minute) * kPlotWidth / kMinutes;
}

double Y(int percent) {
  return kTop + kPlotHeight - percent * kPlotHeight / 100.0;
}

void DrawFrame(std::ostream& svg) {
  svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << kWidth << ' ' << kHeight
      << "\" font-family=\"sans-serif\" font-size=\"12\">\n"
      << "<rect width=\"" << kWidth << "\" height=\"" << kHeight << "\" fill=\"#ffffff\"/>\n"
      << "<rect x=\"" << X(kChargerOn) << "\" y=\"" << kTop << "\" width=\""
      << X(kChargerOff) - X(kChargerOn) << "\" height=\"" << kPlotHeight
      << "\" fill=\"#e8f3e4\"/>\n"
      << "<text x=\"" << X(kChargerOn) + 6 << "\" y=\"" << kTop + kPlotHeight - 8
      << "\" fill=\"#4b7a3a\">charging</text>\n";
  for (int percent = 0; percent <= 100; percent += 20) {
    svg << "<path d=\"M" << kLeft << ' ' << Y(percent) << 'h' << kPlotWidth
        << "\" stroke=\"#dddddd\"/>\n<text x=\"" << kLeft - 8 << "\" y=\"" << Y(percent) + 4
        << "\" text-anchor=\"end\" fill=\"#555555\">" << percent << " %</text>\n";
  }
  for (int minute = 0; minute <= kMinutes; minute += 60) {
    svg << "<text x=\"" << X(minute) << "\" y=\"" << kTop + kPlotHeight + 20
        << "\" text-anchor=\"middle\" fill=\"#555555\">" << minute / 60 << " h</text>\n";
  }
}

void DrawLine(std::ostream& svg, const std::vector<Sample>& samples, int Sample::*level,
              const char* style) {
  svg << "<polyline fill=\"none\" " << style << " points=\"";
  for (const Sample& sample : samples)
    svg << X(sample.minute) << ',' << Y(sample.*level) << ' ';
  svg << "\"/>\n";
}

void DrawLegend(std::ostream& svg, int x, const char* style, const char* text) {
  svg << "<path d=\"M" << x << " 22h26\" " << style << "/><text x=\"" << x + 32
      << "\" y=\"26\" fill=\"#333333\">" << text << "</text>\n";
}

std::string Draw(const std::vector<Sample>& samples) {
  constexpr char kRawStyle[] = "stroke=\"#b0b8c4\" stroke-width=\"1\"";
  constexpr char kShownStyle[] = "stroke=\"#1f5fbf\" stroke-width=\"2.5\"";
  std::ostringstream svg;
  DrawFrame(svg);
  DrawLine(svg, samples, &Sample::raw, kRawStyle);
  DrawLine(svg, samples, &Sample::shown, kShownStyle);
  DrawLegend(svg, kLeft, kRawStyle, "what the device reports");
  DrawLegend(svg, kLeft + 220, kShownStyle, "what the host is shown");
  svg << "</svg>\n";
  return svg.str();
}

std::string Picture() {
  // A registry of its own, gone afterwards: the user's records are not touched.
  std::string folder = (std::filesystem::temp_directory_path() / "battery_curve_XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) return {};
  platform::StartVirtual(1);
  platform::SetRegistryFolder(folder);
  const std::string picture = Draw(Run());
  std::filesystem::remove_all(folder);
  return picture;
}

int Main(const std::vector<std::string>& arguments) {
  const bool check = !arguments.empty() && arguments[0] == "--check";
  if (arguments.size() != (check ? 2u : 1u)) {
    std::fputs("usage: battery_curve [--check] FILE.svg\n", stderr);
    return 2;
  }
  const std::string& name = arguments.back();
  const std::string picture = Picture();
  if (check) {
    std::ifstream file(name, std::ios::binary);
    const std::string found{std::istreambuf_iterator<char>(file), {}};
    if (!picture.empty() && found == picture) return 0;
    std::fprintf(stderr, "%s is not what the code draws: run battery_curve %s\n", name.c_str(),
                 name.c_str());
    return 1;
  }
  std::ofstream file(name, std::ios::binary);
  file << picture << std::flush;
  if (!picture.empty() && file) return 0;
  std::fprintf(stderr, "can't write %s\n", name.c_str());
  return 1;
}

}  // namespace
}  // namespace perilink

int main(int argc, char** argv) {
  return perilink::Main({argv + 1, argv + argc});
}
