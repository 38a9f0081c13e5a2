// SPDX-License-Identifier: MIT
#pragma once

#include <string>

// Takes what the process writes to one of its standard streams, through a pipe, until destroyed.
// When the test has failed by then, what nobody has read yet goes on to the real stream: it may
// be the reason of the failure.
class StreamCapture {
 public:
  explicit StreamCapture(int streamDescriptor);
  ~StreamCapture();
  StreamCapture(const StreamCapture&) = delete;
  StreamCapture& operator=(const StreamCapture&) = delete;

  // The next line with its newline; what there is of it when 20 seconds have passed.
  std::string NextLine();

  // What has been written and not been read yet.
  std::string Rest();

 private:
  bool ReadMore(int milliseconds);

  int stream;
  int original;
  int readEnd = -1;
  std::string pending;
};
