#pragma once

#include <memory>

class QCoreApplication;

namespace corvana {

/// Sees to it that Qt's application object is there while it lives; makes one only when nobody else
/// has. Thread: main.
class QtApplication {
 public:
  QtApplication();
  QtApplication(const QtApplication&) = delete;
  QtApplication& operator=(const QtApplication&) = delete;
  ~QtApplication();

 private:
  struct Own;
  std::unique_ptr<Own> mOwn;
};

}  // namespace corvana
