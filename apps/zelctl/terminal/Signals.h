// Signals while a person is at the terminal: they become something to wait for, and whoever changed the
// terminal gets to put it back before the process ends.
#pragma once

namespace ZelCtl {

// Catches Ctrl-C, the requests to end, and changes of the terminal's size, for as long as it lives; one at a
// time. A system call that waits meanwhile is interrupted.
class Signals {
 public:
   Signals(); // std::runtime_error when it can't
   Signals(const Signals&) = delete;
   Signals& operator=(const Signals&) = delete;
   ~Signals();

   // Becomes readable when one came; the functions below read it.
   int fd() const;

   // As if Ctrl-C had been pressed.
   void interruptIs() { wasInterrupted_ = true; }
   bool takeInterrupt(); // whether Ctrl-C was pressed since the last time
   bool takeResize();
   // The signal that asked the process to end; 0 for none yet.
   int ending();
   // Whether whatever is being done should be given up. Takes nothing.
   bool isBreaking();

 private:
   void drain();

   bool wasInterrupted_ = false;
   bool wasResized_ = false;
   int ending_ = 0;
};

} // namespace ZelCtl
