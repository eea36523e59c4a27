// VELKOR_UserInterface: the run's operator interface. It owns the screen, the
// counters and the worker threads, and runs the chosen operation.
#pragma once

namespace velkor {

class VELKOR_UserInterface {
 public:
  VELKOR_UserInterface(int argc, char** argv);
  ~VELKOR_UserInterface();

  void opDispatcher(int operation, char* path, unsigned long noHeader);
};

}  // namespace velkor
