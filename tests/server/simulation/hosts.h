// What hosts do and what goes wrong, drawn from a seed.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_HOSTS_H_
#define PERILINK_TESTS_SERVER_SIMULATION_HOSTS_H_

#include <cstdint>
#include <functional>
#include <random>
#include <span>

#include "perilink/records.h"
#include "watch.h"

namespace perilink::testing {

class Hosts {
 public:
  explicit Hosts(uint64_t seed) : random_(seed) { current_ = this; }

  // A main host acts, and a second one beside it. Then all heals, the server comes to rest, and
  // everything is let go of.
  void Run();

 private:
  using Action = void (Hosts::*)();
  static constexpr uint32_t kCallbackCount = 4;

  uint32_t Draw(size_t bound) { return static_cast<uint32_t>(random_() % bound); }
  bool OneIn(size_t bound) { return Draw(bound) == 0; }
  uint8_t DrawByte() { return static_cast<uint8_t>(Draw(256)); }
  Device& DrawDevice() { return *watch_.devices[OneIn(3) ? 1 : 0]; }

  static DWORD WINAPI SecondHost(LPVOID self);
  void Act(std::span<const Action> actions);
  void Rest(DWORD milliseconds);

  // ---- What hosts queue ----------------------------------------------------------------------

  void QueueSomething();
  void QueueCommand();
  void QueueRead();
  void QueueFullRead();
  void Update();
  void Change(ProtocolData& record);
  void Queue(std::span<const CommandFrame> frames, uint8_t tag, const std::function<void()>& queue);
  uint64_t DrawFailure(size_t one_in);
  static bool RunFailing(uint64_t nth, const std::function<void()>& run);

  // ---- What they ask devices themselves -------------------------------------------------------

  void AskSomething();
  void AskFrame();
  void AskBytes();
  void UpgradeOnce();
  void Listen();
  void Pump();

  // ---- What else they do, and what happens to them --------------------------------------------

  void Start();
  void StartOn(size_t device);
  void Exit();
  void SetBattery();
  void SetTarget();
  void SetSleepTime();
  void SendEvent();
  void Plug();
  void Unplug();
  void DrawFaults();
  void FailCalls();
  void FailAllocation();
  void ChangeBattery();

  void Heal();
  void End();

  void OnCallback(size_t number, const uint8_t* frame, uint32_t frame_length,
                  std::span<const uint8_t> data);
  template <size_t number>
  static void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t frame_length,
                                     const uint8_t* data, uint32_t length) {
    current_->OnCallback(number, frame, frame_length, {data, length});
  }
  static void PERILINK_CALL OnUsbChange(bool arrived);
  static int PERILINK_CALL OnUpgrade(const uint8_t* message, uint32_t length);

  static inline Hosts* current_ = nullptr;

  std::mt19937_64 random_;
  Watch watch_{random_};
  StartNumber starts_ = 0;
  bool healed_ = false;
  uint32_t serial_ = 0;
  ProtocolData previous_{};     // a host's own
  Device* upgraded_ = nullptr;  // the one device that is
  int results_ = 0;             // of the upgrade
  bool listens_ = false;        // for devices that come and go
  uint64_t unheard_since_ = 0;  // the number of changes when it began to
  uint64_t heard_ = 0;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_HOSTS_H_
