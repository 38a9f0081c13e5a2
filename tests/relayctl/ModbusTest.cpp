// SPDX-License-Identifier: MIT
// A Modbus RTU master of Debian's, mbpoll, reads and writes a slave made of Debian's libmodbus,
// through relayctl pty.
#include <modbus/modbus.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <thread>

#include "relayctl/RelayctlTest.h"

namespace {

constexpr int kSlave = 17;

// Answers on a terminal until it goes out of scope.
class Slave {
 public:
  explicit Slave(const char* terminal)
      : context(modbus_new_rtu(terminal, 9600, 'N', 8, 1)),
        registers(modbus_mapping_new(0, 0, 10, 0)) {
    EXPECT_EQ(0, modbus_set_slave(context, kSlave));
    EXPECT_EQ(0, modbus_connect(context)) << modbus_strerror(errno);
    // A look at the end now and then.
    EXPECT_EQ(0, modbus_set_indication_timeout(context, 0, 50000));
    answering = std::thread([this] { Answer(); });
  }
  ~Slave() {
    leaving = true;
    answering.join();
    modbus_close(context);
    modbus_mapping_free(registers);
    modbus_free(context);
  }
  Slave(const Slave&) = delete;
  Slave& operator=(const Slave&) = delete;

  int Requests() const { return requests; }

 private:
  void Answer() {
    std::array<uint8_t, MODBUS_RTU_MAX_ADU_LENGTH> request{};
    while (!leaving) {
      const int size = modbus_receive(context, request.data());
      if (size > 0) {
        ++requests;
        (void)modbus_reply(context, request.data(), size, registers);
      }
    }
  }

  modbus_t* context;
  modbus_mapping_t* registers;
  std::atomic<bool> leaving = false;
  std::atomic<int> requests = 0;
  std::thread answering;
};

class ModbusTest : public RelayctlTest {};

TEST_F(ModbusTest, AMasterReadsAndWritesASlaveThroughPty) {
  ASSERT_NO_FATAL_FAILURE(StartLine());
  StartPty();
  ASSERT_TRUE(pty->Prints(kLink)) << pty->Output();
  const Slave slave(kFar);
  const std::string master = std::string("mbpoll -m rtu -a ") + std::to_string(kSlave) +
                             " -b 9600 -P none -0 -r 2 -t 4 -1 -o 10 -q ";

  const Outcome written = RunShell(master + kLink + " 1234 5678 65535");
  EXPECT_EQ(0, written.status) << written.output;
  EXPECT_NE(std::string::npos, written.output.find("Written 3 references")) << written.output;

  const Outcome read = RunShell(master + "-c 4 " + kLink);
  EXPECT_EQ(0, read.status) << read.output;
  for (const char* const value : {"[2]: \t1234", "[3]: \t5678", "[4]: \t65535", "[5]: \t0"}) {
    EXPECT_NE(std::string::npos, read.output.find(value)) << value << " in:\n" << read.output;
  }

  const Outcome refused = RunShell(master + "-c 100 " + kLink);
  EXPECT_NE(0, refused.status);
  EXPECT_NE(std::string::npos, refused.output.find("Illegal data address")) << refused.output;
  EXPECT_EQ(3, slave.Requests());
}

}  // namespace
