// SPDX-License-Identifier: BSD-3-Clause
// "top": one screen about all boards that refreshes; frame by frame on a pipe.
#include <algorithm>
#include <cmath>

#include "interrupt.h"
#include "nouns.h"
#include "port_record.h"
#include "screen.h"

namespace hcxadm {
namespace {

struct Arguments {
  std::string board;
  double interval = 2;
  unsigned count = 0;
  bool batch = false;
  bool once = false;
};

class Top {
 public:
  Top(Context &ctx, std::vector<Board> boards)
      : ctx_(ctx), boards_(std::move(boards)), events_(boards_, EventChoice{}) {}

  void look() {
    while (std::optional<Event> event = events_.next(std::chrono::milliseconds(0)))
      model_.happened(std::move(*event));
    std::vector<BoardSight> sights;
    for (const Board &board : boards_)
      sights.push_back(look_at(ctx_.boards, board));
    frame_ = model_.frame(time_now(), std::move(sights));
    for (const TopBoard &board : frame_.boards)
      record_.see(wwn_text(board.sight.board.wwpn.wwn), is_up(board.sight.state), frame_.time);
    for (const TopPort &port : frame_.ports)
      record_.see(wwn_text(port.wwpn.wwn) + " " + wwn_text(port.sight.port.wwpn.wwn), is_up(port.sight.state),
                  frame_.time);
    record_.save();
  }
  const TopFrame &frame() const { return frame_; }

 private:
  Context &ctx_;
  const std::vector<Board> boards_;
  EventStream events_;
  TopModel model_;
  TopFrame frame_;
  PortRecord record_{run_folder()};
};

void print(Context &ctx, const TopFrame &frame, bool first) {
  if (ctx.json()) {
    const Value document = {
        {"schema", {{"name", top_schema.name}, {"major", top_schema.major}, {"minor", top_schema.minor}}},
        {"data", Value::array({value_of(frame)})},
        {"errors", Value::array()}};
    ctx.out << document.dump(-1, ' ', false, Value::error_handler_t::replace) << std::endl;
    return;
  }
  if (!first) ctx.out << '\n';
  const size_t columns = ctx.terminal.out ? Screen::size().columns : 0;
  for (const ScreenLine &line : lines_of(frame, {}, {columns, 0}))
    ctx.out << line.text << '\n';
  ctx.out.flush();
}

// Frames with rates only: the first one comes after an interval.
void run_batch(Context &ctx, Top &top, const Arguments &args) {
  const InterruptGuard interrupt;
  ctx.streamed = true;
  top.look();
  double next = ticker.now();
  for (unsigned n = 0; ctx.out && (args.count == 0 || n < args.count); ++n) {
    next += args.interval;
    for (double left = next - ticker.now(); left > 0 && InterruptGuard::caught() == 0;
         left = next - ticker.now())
      ticker.sleep(std::min(left, 0.2));
    if (InterruptGuard::caught() != 0) return;
    top.look();
    print(ctx, top.frame(), n == 0);
  }
}

constexpr const char *help_lines[] = {"",
                                      "  q          quit",
                                      "  space      look again now",
                                      "  + -        longer, shorter interval",
                                      "  p          remote ports on, off",
                                      "  e          events on, off",
                                      "  h ?        this help, and back"};

void run_screen(Context &ctx, Top &top, const Arguments &args) {
  Screen screen(ctx.out, !std::getenv("NO_COLOR"));
  TopView view;
  double interval = args.interval;
  bool help = false;
  top.look();
  double next = ticker.now() + interval;
  for (unsigned n = 1; ctx.out;) {
    std::vector<ScreenLine> lines = lines_of(top.frame(), view, Screen::size());
    if (help) {
      char text[64];
      std::snprintf(text, sizeof text, "hcxadm top: keys; every %g s", interval);
      lines = {{cut(text, Screen::size().columns), Paint::header}};
      for (const char *line : help_lines)
        lines.push_back({line, Paint::plain});
    }
    screen.draw(lines);
    const int key = screen.wait(std::max(0.0, next - ticker.now()));
    switch (key) {
      case 'q':
      case 'Q':
      case Screen::ended:
        return;
      case 'p':
        view.ports = !view.ports;
        break;
      case 'e':
        view.events = !view.events;
        break;
      case 'h':
      case '?':
        help = !help;
        break;
      case '+':
        interval = std::min(interval * 2, 3600.0);
        next = ticker.now() + interval;
        break;
      case '-':
        interval = std::max(interval / 2, 0.1);
        next = std::min(next, ticker.now() + interval);
        break;
      case ' ':
      case '\n':
        next = ticker.now();
        break;
      default:
        break;
    }
    if (ticker.now() < next) continue;
    if (args.count != 0 && n++ >= args.count) return;
    top.look();
    next = ticker.now() + interval;
  }
}

void top(Context &ctx, Arguments args) {
  ctx.document(top_schema);
  if (args.once) args.count = 1;
  const bool batch = args.batch || args.once || ctx.json() || !ctx.terminal.out || !ctx.terminal.in;
  Top all(ctx, ctx.boards.select(args.board));
  if (batch)
    run_batch(ctx, all, args);
  else
    run_screen(ctx, all, args);
}

}  // namespace

void add_top(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Arguments>();
  CLI::App *verb = add_verb(root, "top", "One screen about all boards that refreshes", ctx,
                            [args](Context &c) { top(c, *args); });
  verb->add_option("BOARD", args->board, board_help)->type_name("");
  verb->add_option("-d,--interval", args->interval, "Seconds between two frames, 2 unless given")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.1, 86400.0).description(""));
  verb->add_option("-n,--count", args->count, "End after so many frames")->type_name("N");
  verb->add_flag("-b,--batch", args->batch, "Print frames one after another, as without a terminal");
  verb->add_flag("--once", args->once, "One frame, after one interval: --batch --count 1");
}

}  // namespace hcxadm
