// SPDX-License-Identifier: MIT
// What the simulated kernel tells of all that passes between it and the service. Nobody listens
// unless somebody overrides it.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace simulation {

struct Connection;
class Line;

class Witness {
 public:
  Witness() = default;
  virtual ~Witness() = default;
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  // The link. The service takes bytes, and asks for more when it has done with them.
  virtual void Accepts(const std::shared_ptr<Connection>& /*connection*/) {}
  virtual void AsksForMore(const Connection& /*connection*/) {}
  virtual void Takes(const Connection& /*connection*/, std::string_view /*bytes*/) {}
  virtual void SeesTheEnd(const Connection& /*connection*/) {}
  // `isWhole`: all that the call was to send has gone.
  virtual void Sends(const Connection& /*connection*/, std::string_view /*bytes*/,
                     bool /*isWhole*/) {}

  // A thread is made by this one.
  virtual void Makes(int /*thread*/) {}

  // Lines. A use is an open description.
  virtual void Opens(const void* /*use*/, const std::shared_ptr<const Line>& /*line*/) {}
  virtual void FailsToOpen() {}
  virtual void FailsToSetUp(const void* /*use*/) {}
  virtual void AsksToRead(const void* /*use*/) {}
  virtual void Reads(const void* /*use*/, std::string_view /*bytes*/) {}
  virtual void FailsToRead(const void* /*use*/) {}
  virtual void Writes(const void* /*use*/, std::string_view /*bytes*/) {}
  virtual void FailsToWrite() {}
  virtual void Flushes(const void* /*use*/) {}
  virtual void Closes(const void* /*use*/) {}

  // The service listens, and takes who comes; or refuses who comes from elsewhere.
  virtual void Listens() {}
  virtual void MayFail() {}

  // What the configuration says to who reads it now.
  virtual void Configures(const std::string& /*text*/) {}

  // What a search finds: the node at each place.
  virtual void Searches(const std::map<int, std::string>& /*places*/) {}

  // The log, and what is written to the standard streams 1 and 2.
  virtual void Logs(std::string_view /*text*/) {}
  virtual void Prints(bool /*isError*/, std::string_view /*text*/) {}

  // A call in which the thread may wait: "read(5".
  virtual void MayWait(const std::string& /*call*/) const {}

  // How the run ended: the same, or what is wrong with it.
  virtual std::string Judge(const std::string& ending) const { return ending; }
};

}  // namespace simulation
