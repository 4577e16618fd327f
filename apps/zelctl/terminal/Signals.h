// Signals while a person is at the terminal. They become something to wait for, so that whoever changed the terminal
// can restore it before the process ends.
#pragma once

namespace ZelCtl {

// Catches Ctrl-C, the signals to end, and changes of the terminal's size as long as it lives. There may be only one
// at a time. A signal interrupts a system call that waits (EINTR).
class Signals {
 public:
   Signals(); // throws std::runtime_error if there is no pipe to be had
   Signals(const Signals&) = delete;
   Signals& operator=(const Signals&) = delete;
   ~Signals();

   // Becomes readable when a signal came. To wait for only; the functions below read it.
   int fd() const;

   // As if Ctrl-C had been pressed.
   void interruptIs() { wasInterrupted_ = true; }
   bool takeInterrupt(); // whether Ctrl-C was pressed since the last call
   bool takeResize();    // whether the terminal's size changed since the last call
   // The signal that asked the process to end; 0 if none did.
   int ending();
   // Whether the work at hand should stop, by Ctrl-C or by a signal to end. Leaves both to be taken.
   bool isBreaking();

 private:
   void drain();

   bool wasInterrupted_ = false;
   bool wasResized_ = false;
   int ending_ = 0;
};

} // namespace ZelCtl
