// SPDX-License-Identifier: MIT
#include "machine/TcpTraffic.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace {

constexpr uint32_t kConnected = 1U << 1 | 1U << 8;  // ESTABLISHED, CLOSE_WAIT
constexpr time_t kPatienceSeconds = 5;

struct Request {
  nlmsghdr header;
  inet_diag_req_v2 what;
};

std::string ReasonOf(int error) {
  return "the kernel does not tell of TCP connections: " + std::generic_category().message(error);
}

bool Ask(int netlink, uint16_t localPort) {
  Request request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.what.sdiag_family = AF_INET;
  request.what.sdiag_protocol = IPPROTO_TCP;
  request.what.idiag_ext = 1U << (INET_DIAG_INFO - 1);
  request.what.idiag_states = kConnected;
  request.what.id.idiag_sport = htons(localPort);
  return send(netlink, &request, sizeof request, 0) == sizeof request;
}

// An older kernel tells less of it: the rest stays 0.
TcpTraffic TrafficFrom(const inet_diag_msg& message, const char* details, size_t size) {
  tcp_info info{};
  std::memcpy(&info, details, std::min(size, sizeof info));
  TcpTraffic traffic;
  traffic.remoteAddress = ntohl(message.id.idiag_dst[0]);
  traffic.remotePort = ntohs(message.id.idiag_dport);
  traffic.received = info.tcpi_bytes_received;
  traffic.sent = info.tcpi_bytes_acked;
  traffic.sinceReceived = info.tcpi_last_data_recv / 1e3;
  traffic.sinceSent = info.tcpi_last_data_sent / 1e3;
  traffic.windowWasFull = static_cast<double>(info.tcpi_rwnd_limited) / 1e6;
  return traffic;
}

void TakeConnection(const nlmsghdr& header, std::vector<TcpTraffic>& all) {
  const char* const begin = reinterpret_cast<const char*>(&header) + NLMSG_HDRLEN;
  const char* const end = reinterpret_cast<const char*>(&header) + header.nlmsg_len;
  inet_diag_msg message{};
  std::memcpy(&message, begin, std::min<size_t>(sizeof message, static_cast<size_t>(end - begin)));
  for (const char* at = begin + NLMSG_ALIGN(sizeof message); at + sizeof(rtattr) <= end;) {
    rtattr attribute{};
    std::memcpy(&attribute, at, sizeof attribute);
    if (attribute.rta_len < RTA_LENGTH(0) || at + attribute.rta_len > end) {
      return;
    }
    if (attribute.rta_type == INET_DIAG_INFO) {
      all.push_back(TrafficFrom(message, at + RTA_LENGTH(0), attribute.rta_len - RTA_LENGTH(0)));
    }
    at += RTA_ALIGN(attribute.rta_len);
  }
}

// One datagram of the answer. True at its end; `error` is then what the kernel says.
bool TakeAnswer(const char* bytes, size_t size, std::vector<TcpTraffic>& all, int& error) {
  for (size_t at = 0; at + sizeof(nlmsghdr) <= size;) {
    const auto& header = *reinterpret_cast<const nlmsghdr*>(bytes + at);
    if (header.nlmsg_len < NLMSG_HDRLEN || at + header.nlmsg_len > size) {
      error = EPROTO;
      return true;
    }
    if (header.nlmsg_type == NLMSG_ERROR || header.nlmsg_type == NLMSG_DONE) {
      int32_t result = 0;
      std::memcpy(&result, bytes + at + NLMSG_HDRLEN,
                  std::min<size_t>(sizeof result, header.nlmsg_len - NLMSG_HDRLEN));
      error = -result;
      return true;
    }
    TakeConnection(header, all);
    at += NLMSG_ALIGN(header.nlmsg_len);
  }
  return false;
}

}  // namespace

std::vector<TcpTraffic> TcpTrafficOf(uint16_t localPort, std::string& problem) {
  std::vector<TcpTraffic> all;
  const int netlink = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
  const timeval patience{kPatienceSeconds, 0};
  int error = 0;
  if (netlink == -1 ||
      setsockopt(netlink, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0 ||
      !Ask(netlink, localPort)) {
    error = errno;
  }
  alignas(nlmsghdr) std::array<char, 32768> answer;
  for (bool isOver = error != 0; !isOver;) {
    const ssize_t count = recv(netlink, answer.data(), answer.size(), 0);
    if (count <= 0) {
      error = count < 0 ? errno : EPROTO;
      break;
    }
    isOver = TakeAnswer(answer.data(), static_cast<size_t>(count), all, error);
  }
  (void)close(netlink);
  problem = error != 0 ? ReasonOf(error) : "";
  return all;
}
