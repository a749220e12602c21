#ifndef TARV_CORE_TARVBASE_H
#define TARV_CORE_TARVBASE_H

namespace tarv {

// Intrusive reference count. Not thread-safe.
class TARVBase {
public:
  TARVBase() = default;
  TARVBase(const TARVBase&) : count_(0) {}
  TARVBase& operator=(const TARVBase&) { return *this; }
  virtual ~TARVBase();

  void refer() { ++count_; }
  void unrefer() {
    if (count_ > 0) --count_;
  }
  bool isRefered() const { return count_ > 0; }

private:
  int count_ = 0;
};

}  // namespace tarv

#endif
