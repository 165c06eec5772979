// Passes this process's standard output through a pipe for the length of one engine
// call, so that a progress display sharing the terminal can take its own text away
// before the engine's lines appear and draw it again after them: the two writers then
// never write over each other. The bytes reach the real standard output unchanged.
//
// Not thread-safe beyond this: after Start(), one thread (the display's) calls Take();
// Finish() is called once that thread has stopped.
#ifndef TAVIK_TKPACK_OUTPUT_RELAY_H_
#define TAVIK_TKPACK_OUTPUT_RELAY_H_

#include <string>

namespace tk {

class OutputRelay {
 public:
  OutputRelay() = default;
  ~OutputRelay() { Finish(); }
  OutputRelay(const OutputRelay&) = delete;
  OutputRelay& operator=(const OutputRelay&) = delete;

  // Flushes stdout and puts a pipe in place of descriptor 1. False (nothing changed)
  // when a descriptor or the pipe cannot be had.
  bool Start();

  // What was written to standard output since the last call, without waiting;
  // "" when nothing was (or the relay is not running).
  std::string Take();

  // Writes `text` to the real standard output.
  void Pass(const std::string& text) const;

  // Flushes stdout, puts the real standard output back on descriptor 1 and passes on
  // what is left in the pipe. Does nothing when the relay is not running.
  void Finish();

  bool running() const { return saved_ >= 0; }

 private:
  int saved_ = -1;    // the real standard output while the relay runs
  int readEnd_ = -1;  // our end of the pipe
};

}  // namespace tk

#endif  // TAVIK_TKPACK_OUTPUT_RELAY_H_
