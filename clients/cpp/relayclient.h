// SPDX-License-Identifier: MIT
// The relay service's end of the link for programs in C99 and later, and for languages that call C:
// connects to SerialPortHandler, opens ports, writes to them, and gives what they send.
//
// Results: 0, or the errno value of what went wrong; relayclient_error_text then says it in words.
// Each function lists those of its own. Any of them can also be
//   EINVAL           an argument that cannot be: NULL, a port name that is empty or too long
//   ENOMEM           no memory
//   ENOTRECOVERABLE  a function of relayclient_events threw a C++ exception
// and what ends the link, as also `disconnected` tells it, is one of
//   ECONNREFUSED     nobody listens on the service's port, or it reset the link at once
//   ECONNRESET       the service left, or died
//   EPROTO           what came is no packet of the service
//   ETIMEDOUT        a command was not answered within reply_timeout_ms
//   or what a system call gave, such as EMFILE.
//
// Threads: none inside. One thread at a time may use a client; several clients are independent. A
// thread is not to be cancelled (pthread_cancel) while it is in here.
//
// Time limits are in milliseconds: 0 does not wait, and a negative one is none. What was asked for
// goes on behind a limit: ETIMEDOUT says only that it has not happened yet. A signal does not end a
// wait.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct relayclient relayclient;

// 0, or NULL, in a field is its default: `relayclient_options options = {0};` is all defaults.
typedef struct relayclient_options {
  uint16_t port;              // the service's, on 127.0.0.1; 60004
  int reconnect;              // 1: makes the link again whenever it ends, until relayclient_stop
  unsigned patience_ms;       // without it: so long a service that is not there yet is tried; 1000
  unsigned retry_pause_ms;    // between two tries, and longer each time with `reconnect`; 100
  unsigned longest_pause_ms;  // until it is so long; 1000
  unsigned reopen_pause_ms;   // with `reconnect`, between two opens of a port that is refused; 500
  unsigned reply_timeout_ms;  // a command not answered for so long ends the link; 0: no limit
  const char* line_end;       // of relayclient_read_line; "\n"
  size_t longest_line;        // of the same, in bytes, without its end; 4096
} relayclient_options;

// What is told, from within relayclient_start, relayclient_process and what waits. NULL: nobody
// wants to know. These functions may call what does not wait, and relayclient_stop, but not
// relayclient_free; they return, and are not left by longjmp. Texts and data are the client's:
// they are valid until the function returns.
typedef struct relayclient_events {
  void* context;  // the first argument of each

  void (*connected)(void* context);

  // The link ended, or could not be made, and all ports are closed with it. `pause_ms`: until the
  // next try; -1: there is none. Before one, `tries_in_vain` counts the links in a row on which
  // nothing came; 0: the one that ended was a good one.
  void (*disconnected)(void* context, int error, const char* text, int pause_ms,
                       unsigned tries_in_vain);

  // The answer to an open: 0, or as relayclient_open gives it. A port that is refused is tried
  // again with `reconnect`, and told again.
  void (*opened)(void* context, const char* port, int error, const char* text);

  // What the port sent, in pieces of any size. With this function relayclient_read_line has
  // nothing.
  void (*received)(void* context, const char* port, const void* data, size_t size);
} relayclient_events;

// Makes a client, which relayclient_free takes again, and connects nothing yet. Both structures are
// copied, `line_end` too; NULL: all defaults, no events. EINVAL also for an empty `line_end`.
int relayclient_new(relayclient** client, const relayclient_options* options,
                    const relayclient_events* events);

// Leaves: the service closes all ports, and what a line has not sent yet is lost. NULL is nothing.
void relayclient_free(relayclient* client);

// What the last function that failed with this client has to say: one line without a full stop,
// never NULL, valid until the next call.
const char* relayclient_error_text(const relayclient* client);

// Begins to connect, and returns. What comes of it is told by `connected` and `disconnected`, or by
// what waits.
int relayclient_start(relayclient* client);

// Leaves the link. It can be started again: ports that are open now are opened on that link, too.
void relayclient_stop(relayclient* client);

// 1 or 0.
int relayclient_is_connected(const relayclient* client);

// ---- Waiting: one of the two ways

// Does for so long what there is to do. ENOTCONN before relayclient_start and behind
// relayclient_stop; EDEADLK from within an event, as all that is to wait there; without
// `reconnect`, what ended the link.
int relayclient_run_for(relayclient* client, int time_ms);

// For a poll loop of the program's own: wait until the descriptor has one of the events, at most so
// many milliseconds, and then process. All three change with each call. -1: there is no descriptor
// at the moment, as poll skips it; the time has no limit, as poll takes it. The result is 0 as long
// as there is a link or will be one, else as of relayclient_run_for.
int relayclient_descriptor(const relayclient* client);
short relayclient_poll_events(const relayclient* client);
int relayclient_timeout_ms(const relayclient* client);
int relayclient_process(relayclient* client);

// ---- Ports, by their names, as "#USBSerialPort0"

// Opens the port, on this link and on each to come, and waits for the answer.
//   ENODEV     the machine's configuration has no such port, or the name leads to no device
//   EIO        the device could not be opened or set up
//   ETIMEDOUT  no answer yet
//   ENOENT     an event closed it
// and as relayclient_run_for. Without `reconnect` a port that is refused is not opened any more.
int relayclient_open(relayclient* client, const char* port, int limit_ms);

// Closes it, on the links to come too, and drops what nobody has read. What its line has not sent
// yet is lost. ENOENT: it was never opened here; EIO: the service could not close it; ETIMEDOUT,
// EDEADLK.
int relayclient_close(relayclient* client, const char* port, int limit_ms);

// Whether it is open on the link that stands: 1 or 0.
int relayclient_is_open(const relayclient* client, const char* port);

// Sends data of any length, at the pace at which the service takes them, and does not wait: what
// does not go out at once goes out from relayclient_process and what waits. Whether it was taken
// nobody tells. ENOTCONN, and nothing is sent: the port is not open at the moment.
int relayclient_send(relayclient* client, const char* port, const void* data, size_t size);

// Bytes of such data that are still in this process: with a line that is slower than the program
// they grow. 0 also for a port that was not opened.
size_t relayclient_unsent(const relayclient* client, const char* port);

// Sends data, and waits until the service has taken all of them: then they are written to the line,
// or dropped while the device is unplugged. ENOTCONN as above; ENOENT: an event closed it;
// ECONNRESET: the link has ended, and how much was taken nobody knows; ETIMEDOUT: some is still on
// its way; else as relayclient_run_for.
int relayclient_write(relayclient* client, const char* port, const void* data, size_t size,
                      int limit_ms);

// The next line that the port sent, without its end and with a 0 behind it, in `size` bytes from
// `line` on. `length`, unless NULL, gets its bytes without the 0, as it may have such itself.
//   ETIMEDOUT  there is none yet
//   EMSGSIZE   it does not fit; it stays for the next call
//   EOVERFLOW  lines were dropped, once for all: too long, or behind 64 KiB that nobody had read
//   ENOENT     the port was not opened here, or is closed, or there is `received`
// and as relayclient_run_for, but not before the last line. A line that a link's end cuts is none.
int relayclient_read_line(relayclient* client, const char* port, char* line, size_t size,
                          size_t* length, int limit_ms);

#ifdef __cplusplus
}
#endif
