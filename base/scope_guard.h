// scope_guard.h - run a step's undo (or any clean-up) when a scope ends.
//
//   if (!AddRecord(...)) return false;
//   ScopeGuard undoAdd([&] { RemoveRecord(...); });
//   if (!WriteFile(...)) return false;   // undoAdd runs here
//   undoAdd.dismiss();                   // kept: the whole change happened
//   return true;
//
// A guard models a control-flow construct inside one function body; it is
// not an interface type. It is [[nodiscard]] so that an unnamed temporary,
// which would run at once, does not compile silently.
#pragma once

#include <utility>

namespace nxc {

template <class F>
class [[nodiscard]] ScopeGuard {
 public:
  explicit ScopeGuard(F f) : f_(std::move(f)) {}
  ScopeGuard(const ScopeGuard &) = delete;
  ScopeGuard &operator=(const ScopeGuard &) = delete;
  ~ScopeGuard() {
    if (armed_) f_();
  }
  // Drops the clean-up: it will never run.
  void dismiss() noexcept { armed_ = false; }
  // Runs the clean-up now, once, instead of at scope exit.
  void runNow() {
    if (!armed_) return;
    armed_ = false;
    f_();
  }

 private:
  F f_;
  bool armed_ = true;
};

}  // namespace nxc
