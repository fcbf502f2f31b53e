// SPDX-License-Identifier: BSD-3-Clause
// The simulated machine's file tree: directories, attributes, links and device nodes as kernfs shows them.
// The tree knows paths, modes and contents and nothing of adapters; who may open what and what faults are
// injected is the Machine's business. Owned by one Machine and touched only under its mutex.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sim {

struct Node;
struct OpenFile;

enum class NodeKind { dir, text, binary, link, device };

// What an attribute does instead of keeping bytes. Results are counts or 0, or negated errno values.
struct NodeHandlers {
  std::function<int(std::string &text)> show;         // the text afresh, with its newline
  std::function<int(const std::string &text)> store;  // one write(2); 0 = all of it was taken
  std::function<ssize_t(uint64_t offset, void *buf, size_t count)> read_at;
  std::function<ssize_t(uint64_t offset, const void *buf, size_t count)> write_at;
  std::function<int(OpenFile &file, unsigned long request, void *arg)> ioctl;
};

struct Node {
  // A directory's entries come in an order that is neither alphabetical nor that of their making, as in
  // kernfs.
  struct NameOrder {
    using is_transparent = void;
    static uint32_t hash(std::string_view name);
    bool operator()(const std::pair<uint32_t, std::string> &a,
                    const std::pair<uint32_t, std::string> &b) const {
      return a < b;
    }
    bool operator()(const std::pair<uint32_t, std::string> &a,
                    const std::pair<uint32_t, std::string_view> &b) const {
      return a.first != b.first ? a.first < b.first : a.second < b.second;
    }
    bool operator()(const std::pair<uint32_t, std::string_view> &a,
                    const std::pair<uint32_t, std::string> &b) const {
      return a.first != b.first ? a.first < b.first : a.second < b.second;
    }
  };
  using Children = std::map<std::pair<uint32_t, std::string>, std::shared_ptr<Node>, NameOrder>;

  NodeKind kind = NodeKind::dir;
  bool removed = false;  // gone from the tree, though somebody may hold it open
  bool sysfs = false;    // attribute rules (one store per write, permission bits bind root too)
  mode_t mode = 0755;    // permission bits
  nlink_t links = 1;     // names; the tree itself knows one
  int64_t size = -1;     // what stat shows; -1: 4096 for an attribute, the data's size for a plain file
  std::string data;      // text, bytes, or a link's target
  Children children;
  std::function<void()> populate;  // run before the first look into a directory, then dropped
  std::unique_ptr<NodeHandlers> handlers;

  NodeHandlers &hooks();
  int64_t stat_size() const;
  mode_t stat_mode() const;
  Node *child(std::string_view name);
  void fill();
};

class Vfs {
 public:
  static constexpr mode_t kKeepMode = static_cast<mode_t>(-1);

  Vfs();

  // Follows links, the last one only when asked. Null with *error set (ENOENT, ENOTDIR, ELOOP) when there is
  // no such node; *canonical gets the path without links.
  std::shared_ptr<Node> find(std::string_view path, bool follow_last = true, int *error = nullptr,
                             std::string *canonical = nullptr);
  bool exists(std::string_view path) { return find(path) != nullptr; }

  // Makers: parents are made as needed, existing links among them are followed, an existing node is replaced
  // (a directory is kept). A text or binary file that is replaced without a mode keeps the old one's.
  Node &put_dir(std::string_view path);
  Node &put_lazy_dir(std::string_view path, std::function<void()> populate);
  Node &put_text(std::string_view path, std::string text, mode_t mode = kKeepMode);
  Node &put_binary(std::string_view path, std::string bytes, mode_t mode = kKeepMode, int64_t size = -1);
  Node &put_link(std::string_view path, std::string target);
  Node &put_device(std::string_view path, mode_t mode,
                   std::function<int(OpenFile &, unsigned long, void *)> ioctl = {});
  // Removes a node and all below it; a link is removed itself. False when there is none.
  bool remove(std::string_view path);

  void on_read(std::string_view path, std::function<int(std::string &)> show);
  void on_write(std::string_view path, std::function<int(const std::string &)> store);

  // The text as a reader would get it, empty when there is no such file.
  std::string text(std::string_view path);
  // Names in a directory, in directory order.
  std::vector<std::string> names(std::string_view path);

 private:
  std::shared_ptr<Node> parent_of(std::string_view path, std::string &last);
  Node &put(std::string_view path, NodeKind kind, mode_t mode);

  std::shared_ptr<Node> root_;
  // Where the last entry was put: whole directories are made entry by entry.
  std::string last_dir_;
  std::shared_ptr<Node> last_parent_;
};

}  // namespace sim
