# SPDX-License-Identifier: MIT
# What the emulation of a single ARM process cannot show, in the form of GoogleTest's filter. Each of
# these is shown natively, by the same sources, in every other build. Beside these
# - the rows of tests/faults that preload a library or refuse system calls to the process are not
#   built: they would hit the emulator, too;
# - resident memory and the number of threads are those of the emulator and the service together:
#   tests compare them;
# - AddressSanitizer takes the unwinding of a cancelled thread for an error, and starting it takes
#   half a second: of the preset armhf-asan only the tests of the wire, the configuration and the log
#   line are run, where an unsigned char and the alignment of numbers matter;
# - ThreadSanitizer does not exist for 32-bit ARM, and a weak memory order does not show.
set(SPH_NOT_UNDER_EMULATION
  # It does not know TIOCVHANGUP.
  Line/HangupTest.*
  # It has a signal come between blocks of code, thus mostly at a function's first instruction. Before
  # and behind a system call that may be cancelled the C library for ARM has two where the unwinder
  # does not know yet what is on the stack: it gives up, and the thread ends without its destructors.
  TimedWriteTest.LeavesNoTimerBehindInAThreadThatIsCancelled
  # It tells standard error of a process that aborts, and waits there itself.
  Stream/FaultTable.ShowsWhatItsRowSays/AbortWithIts*)
