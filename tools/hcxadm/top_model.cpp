// SPDX-License-Identifier: BSD-3-Clause
// Reads boards, and turns snapshots into frames.
#include "top_model.h"

#include <algorithm>

#include "status.h"

namespace hcxadm {

bool is_up(const Text &state) {
  return state == "Online";
}

BoardSight look_at(Boards &boards, const Board &board) {
  BoardSight sight;
  sight.board = board;
  RefreshInformation(static_cast<uint32_t>(board.number));
  sight.state = attribute(board.fc_host_dir(), "port_state");
  sight.speed = attribute(board.fc_host_dir(), "speed");
  sight.link = attribute(board.scsi_host_dir(), "link_state");
  try {
    sight.sample = read_statistics(board);
  } catch (const Failure &) {  // shown as absent
  }
  sight.at = ticker.now();
  std::vector<Port> ports = boards.ports(board);
  for (Port &port : boards.lost_ports(board))
    ports.push_back(std::move(port));
  for (Port &port : ports) {
    Text state = attribute(board.rport_dir(port), "port_state");
    sight.ports.push_back({std::move(port), std::move(state)});
  }
  return sight;
}

void TopModel::happened(Event event) {
  events_.push_back(std::move(event));
  if (events_.size() > kept_events) events_.pop_front();
}

std::string TopModel::since(const std::string &key, const Text &state, const std::string &time) {
  const auto known = known_.find(key);
  if (known == known_.end()) return known_[key] = {state, first_ ? "" : time}, known_[key].since;
  if (known->second.state != state) known->second = {state, time};
  return known->second.since;
}

TopFrame TopModel::frame(const std::string &time, std::vector<BoardSight> boards) {
  constexpr double bytes_per_word = 4;
  TopFrame frame{time, {}, {}, {}, {events_.begin(), events_.end()}};
  for (BoardSight &sight : boards) {
    const std::string name = wwn_text(sight.board.wwpn.wwn);
    TopBoard line;
    line.since = since(name, sight.state, time);
    const auto before = before_.find(name);
    if (sight.sample && before != before_.end()) {
      const double seconds = sight.at - before->second.at;
      const Rates rates = rates_between(before->second.sample, *sight.sample, seconds);
      line.tx_frames = rates[tx_frames_counter];
      line.rx_frames = rates[rx_frames_counter];
      if (rates[tx_words_counter]) line.tx_bytes = *rates[tx_words_counter] * bytes_per_word;
      if (rates[rx_words_counter]) line.rx_bytes = *rates[rx_words_counter] * bytes_per_word;
      line.errors = error_rate(rates);
      frame.seconds = seconds;
    }
    if (sight.sample)
      before_[name] = {*sight.sample, sight.at};
    else
      before_.erase(name);  // what was missed is not spread over a longer time
    for (const PortSight &port : sight.ports)
      frame.ports.push_back({sight.board.number, sight.board.wwpn, port,
                             since(name + " " + wwn_text(port.port.wwpn.wwn), port.state, time)});
    line.sight = std::move(sight);
    frame.boards.push_back(std::move(line));
  }
  const auto rank = [](const TopPort &port) {
    return !is_up(port.sight.state) ? 0 : port.sight.port.target_id ? 1 : 2;
  };
  std::stable_sort(frame.ports.begin(), frame.ports.end(),
                   [&](const TopPort &a, const TopPort &b) { return rank(a) < rank(b); });
  first_ = false;
  return frame;
}

}  // namespace hcxadm
