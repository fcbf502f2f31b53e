// SPDX-License-Identifier: BSD-3-Clause
// Path walking and the makers of the simulated file tree. Links are resolved as the kernel does: relative to
// the directory that holds them, at most 40 of them in one walk. Owned by one Machine, touched under its
// mutex.
#include "sim_vfs.h"

#include <errno.h>
#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {
constexpr int kMaxLinks = 40;

// Nothing below is filled any more either: its makers may go away with the device.
void mark_removed(Node &node) {
  node.removed = true;
  node.populate = nullptr;
  for (auto &[key, child] : node.children)
    mark_removed(*child);
}

std::pair<uint32_t, std::string_view> key_view(std::string_view name) {
  return {Node::NameOrder::hash(name), name};
}
}  // namespace

uint32_t Node::NameOrder::hash(std::string_view name) {
  uint32_t h = 2166136261U;
  for (unsigned char c : name)
    h = (h ^ c) * 16777619U;
  return h;
}

NodeHandlers &Node::hooks() {
  if (!handlers) handlers = std::make_unique<NodeHandlers>();
  return *handlers;
}

int64_t Node::stat_size() const {
  if (size >= 0) return size;
  if (kind == NodeKind::dir || kind == NodeKind::device) return 0;
  if (kind == NodeKind::text && sysfs) return 4096;
  return static_cast<int64_t>(data.size());
}

mode_t Node::stat_mode() const {
  switch (kind) {
    case NodeKind::dir:
      return S_IFDIR | mode;
    case NodeKind::link:
      return S_IFLNK | 0777;
    case NodeKind::device:
      return S_IFCHR | mode;
    default:
      return S_IFREG | mode;
  }
}

void Node::fill() {
  if (!populate) return;
  auto run = std::move(populate);
  populate = nullptr;
  run();
}

Node *Node::child(std::string_view name) {
  fill();
  auto it = children.find(key_view(name));
  return it == children.end() ? nullptr : it->second.get();
}

Vfs::Vfs() : root_(std::make_shared<Node>()) {}

// What is still to be walked: the rest of the path, and before it the rests of the links met on the way.
class Remainder {
 public:
  explicit Remainder(std::string_view path) { parts_.push_back(path); }
  // Keeps the link as long as its text is in use: filling a directory may put a new one in its place.
  void push(const std::shared_ptr<Node> &link) {
    links_.push_back(link);
    parts_.push_back(link->data);
  }
  // The next component; empty when there is none.
  std::string_view next() {
    while (!parts_.empty()) {
      std::string_view &rest = parts_.back();
      const size_t start = rest.find_first_not_of('/');
      if (start == std::string_view::npos) {
        parts_.pop_back();
        continue;
      }
      const size_t end = std::min(rest.find('/', start), rest.size());
      const std::string_view part = rest.substr(start, end - start);
      rest.remove_prefix(end);
      return part;
    }
    return {};
  }
  [[nodiscard]] bool empty() const {
    return std::all_of(parts_.begin(), parts_.end(), [](std::string_view rest) {
      return rest.find_first_not_of('/') == std::string_view::npos;
    });
  }

 private:
  std::vector<std::string_view> parts_;
  std::vector<std::shared_ptr<Node>> links_;
};

std::shared_ptr<Node> Vfs::find(std::string_view path, bool follow_last, int *error, std::string *canonical) {
  auto fail = [error](int value) -> std::shared_ptr<Node> {
    if (error != nullptr) *error = value;
    return nullptr;
  };
  if (path.empty() || path.front() != '/') return fail(ENOENT);
  const bool want_dir = path.back() == '/';

  // Entries of the maps stay where they are while nobody adds or removes any, which only fill() does here, below.
  using Entry = const Node::Children::value_type *;
  std::vector<Entry> stack;
  stack.reserve(24);
  const auto node_of = [this](Entry entry) -> const std::shared_ptr<Node> & {
    return entry == nullptr ? root_ : entry->second;
  };
  Remainder todo(path);
  int links = 0;
  for (std::string_view name = todo.next(); !name.empty(); name = todo.next()) {
    Node &dir = *node_of(stack.empty() ? nullptr : stack.back());
    if (dir.kind != NodeKind::dir) return fail(ENOTDIR);
    if (name == ".") continue;
    if (name == "..") {
      if (!stack.empty()) stack.pop_back();
      continue;
    }
    dir.fill();
    const auto it = dir.children.find(key_view(name));
    if (it == dir.children.end()) return fail(ENOENT);
    const std::shared_ptr<Node> &next = it->second;
    if (next->kind == NodeKind::link && (follow_last || want_dir || !todo.empty())) {
      if (++links > kMaxLinks) return fail(ELOOP);
      if (next->data.starts_with('/')) stack.clear();
      todo.push(next);
      continue;
    }
    stack.push_back(&*it);
  }
  const std::shared_ptr<Node> &found = node_of(stack.empty() ? nullptr : stack.back());
  if (want_dir && found->kind != NodeKind::dir) return fail(ENOTDIR);
  if (canonical != nullptr) {
    canonical->clear();
    for (const Entry entry : stack)
      canonical->append("/").append(entry->first.second);
    if (canonical->empty()) *canonical = "/";
  }
  if (error != nullptr) *error = 0;
  return found;
}

std::shared_ptr<Node> Vfs::parent_of(std::string_view path, std::string &last) {
  while (path.size() > 1 && path.back() == '/')
    path.remove_suffix(1);
  const size_t slash = path.rfind('/');
  if (path.empty() || path.front() != '/' || slash == std::string_view::npos || slash + 1 == path.size()) {
    throw std::invalid_argument("simulated path must be absolute: " + std::string(path));
  }
  last = std::string(path.substr(slash + 1));
  if (slash == 0) return root_;
  const auto dir = path.substr(0, slash);
  if (last_parent_ && dir == last_dir_) return last_parent_;
  auto node = find(dir);
  if (!node) {
    put_dir(dir);
    node = find(dir);
  }
  if (!node) throw std::invalid_argument("simulated path leads nowhere: " + std::string(path));
  last_dir_ = dir;
  last_parent_ = node;
  return node;
}

Node &Vfs::put(std::string_view path, NodeKind kind, mode_t mode) {
  std::string last;
  auto dir = parent_of(path, last);
  if (dir->kind != NodeKind::dir) throw std::invalid_argument("not a directory above " + std::string(path));
  dir->fill();
  auto &slot = dir->children[{Node::NameOrder::hash(last), last}];
  if (slot && kind == NodeKind::dir && slot->kind == NodeKind::dir) return *slot;
  if (mode == kKeepMode) mode = slot ? slot->mode : 0444;
  slot = std::make_shared<Node>();
  slot->kind = kind;
  slot->mode = mode;
  slot->sysfs = dir->sysfs || (dir == root_ && last == "sys");
  return *slot;
}

Node &Vfs::put_dir(std::string_view path) {
  return put(path, NodeKind::dir, 0755);
}

Node &Vfs::put_lazy_dir(std::string_view path, std::function<void()> populate) {
  Node &node = put(path, NodeKind::dir, 0755);
  node.populate = std::move(populate);
  return node;
}

Node &Vfs::put_text(std::string_view path, std::string text, mode_t mode) {
  Node &node = put(path, NodeKind::text, mode);
  node.data = std::move(text);
  return node;
}

Node &Vfs::put_binary(std::string_view path, std::string bytes, mode_t mode, int64_t size) {
  Node &node = put(path, NodeKind::binary, mode);
  node.data = std::move(bytes);
  node.size = size;
  return node;
}

Node &Vfs::put_link(std::string_view path, std::string target) {
  Node &node = put(path, NodeKind::link, 0777);
  last_parent_.reset();  // paths may lead elsewhere now
  node.data = std::move(target);
  return node;
}

Node &Vfs::put_device(std::string_view path, mode_t mode,
                      std::function<int(OpenFile &, unsigned long, void *)> ioctl) {
  Node &node = put(path, NodeKind::device, mode);
  node.hooks().ioctl = std::move(ioctl);
  return node;
}

bool Vfs::remove(std::string_view path) {
  while (path.size() > 1 && path.back() == '/')
    path.remove_suffix(1);
  const size_t slash = path.rfind('/');
  if (slash == std::string_view::npos || slash + 1 == path.size()) return false;
  auto dir = slash == 0 ? root_ : find(path.substr(0, slash));
  if (!dir || dir->kind != NodeKind::dir) return false;
  dir->fill();
  auto it = dir->children.find(key_view(path.substr(slash + 1)));
  if (it == dir->children.end()) return false;
  last_parent_.reset();
  mark_removed(*it->second);
  dir->children.erase(it);
  return true;
}

void Vfs::on_read(std::string_view path, std::function<int(std::string &)> show) {
  auto node = find(path);
  if (!node) throw std::invalid_argument("no simulated file " + std::string(path));
  node->hooks().show = std::move(show);
}

void Vfs::on_write(std::string_view path, std::function<int(const std::string &)> store) {
  auto node = find(path);
  if (!node) throw std::invalid_argument("no simulated file " + std::string(path));
  node->hooks().store = std::move(store);
}

std::string Vfs::text(std::string_view path) {
  auto node = find(path);
  if (!node) return {};
  std::string text;
  if (node->handlers && node->handlers->show) {
    node->handlers->show(text);
    return text;
  }
  return node->data;
}

std::vector<std::string> Vfs::names(std::string_view path) {
  std::vector<std::string> names;
  if (auto node = find(path)) {
    node->fill();
    for (const auto &[key, entry] : node->children)
      names.push_back(key.second);
  }
  return names;
}

}  // namespace sim
