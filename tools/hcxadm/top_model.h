// SPDX-License-Identifier: BSD-3-Clause
// What "top" shows: two snapshots of the machine become rates, states get the time since which they are what they are.
// Knows neither clocks nor terminals; one thread.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "event_stream.h"
#include "statistics.h"

namespace hcxadm {

// A remote port as it was found.
struct PortSight {
  Port port;
  Text state;
};

struct BoardSight {
  Board board;
  Text state, speed, link;
  std::optional<Sample> sample;  // absent: the counters could not be read
  double at = 0;                 // when they were
  std::vector<PortSight> ports;
};

// Reads a board and its remote ports afresh. Throws nothing: what cannot be read is absent.
BoardSight look_at(Boards &boards, const Board &board);

struct TopBoard {
  BoardSight sight;
  std::optional<double> tx_bytes, rx_bytes, tx_frames, rx_frames, errors;  // per second
  std::string since;  // when its state was first seen, empty if it has had it from the start
};

struct TopPort {
  int board;
  HBA_WWN wwpn;  // of the board
  PortSight sight;
  std::string since;
};

struct TopFrame {
  std::string time;
  std::optional<double> seconds;  // that the rates stand for
  std::vector<TopBoard> boards;
  std::vector<TopPort> ports;  // down ones first, then targets, then the fabric's own
  std::vector<Event> events;   // the latest last
};

bool is_up(const Text &state);

class TopModel {
 public:
  static constexpr size_t kept_events = 100;
  void happened(Event event);
  // The frame that follows from this snapshot and the one before it.
  TopFrame frame(const std::string &time, std::vector<BoardSight> boards);

 private:
  struct Before {
    Sample sample;
    double at;
  };
  struct Known {
    Text state;
    std::string since;
  };
  // When this state began, as far as this object has seen it.
  std::string since(const std::string &key, const Text &state, const std::string &time);

  std::map<std::string, Before> before_;  // by WWPN: board numbers change
  std::map<std::string, Known> known_;
  std::deque<Event> events_;
  bool first_ = true;
};

}  // namespace hcxadm
