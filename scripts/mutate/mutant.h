// What the changed sources ask at run time. In front of every source of the build for
// scripts/mutate.sh, and nowhere else.
#ifndef PERILINK_SCRIPTS_MUTATE_MUTANT_H_
#define PERILINK_SCRIPTS_MUTATE_MUTANT_H_

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>

namespace perilink_mutants {

// PERILINK_MUTANT is the number of the change that is on. PERILINK_MUTANTS_REACHED names a file of
// one byte for each number: those that the process comes by are set. Neither is needed.
struct Choice {
  int number = -1;
  unsigned char* reached = nullptr;

  Choice() noexcept {
    if (const char* text = std::getenv("PERILINK_MUTANT")) number = std::atoi(text);
    const char* path = std::getenv("PERILINK_MUTANTS_REACHED");
    if (path == nullptr) return;
    const int file = open(path, O_RDWR | O_CLOEXEC);
    const off_t size = lseek(file, 0, SEEK_END);
    void* bytes = mmap(nullptr, static_cast<size_t>(size), PROT_WRITE, MAP_SHARED, file, 0);
    if (bytes != MAP_FAILED) reached = static_cast<unsigned char*>(bytes);
    close(file);
  }
};

inline bool IsOn(int number) noexcept {
  static const Choice choice;
  if (choice.reached != nullptr) choice.reached[number] = 1;
  return choice.number == number;
}

}  // namespace perilink_mutants

constexpr bool perilink_mutant(int number) noexcept {
  return !__builtin_is_constant_evaluated() && perilink_mutants::IsOn(number);
}

template <typename Number>
constexpr Number perilink_mutant_next(Number number) {
  return static_cast<Number>(number + 1);
}
template <typename Number>
constexpr Number perilink_mutant_previous(Number number) {
  return static_cast<Number>(number - 1);
}

// In place of a mutex: one that nobody else takes. Never freed: its lock may outlive any scope.
template <typename Mutex>
Mutex& perilink_mutant_unshared(Mutex&) {
  return *new Mutex;
}

#endif  // PERILINK_SCRIPTS_MUTATE_MUTANT_H_
