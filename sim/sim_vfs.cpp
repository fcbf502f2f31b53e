// SPDX-License-Identifier: BSD-3-Clause
// Path walking and the makers of the simulated file tree. Links are resolved as the kernel does: relative to
// the directory that holds them, at most 40 of them in one walk. Owned by one Machine, touched under its
// mutex.
#include "sim_vfs.h"

#include <errno.h>
#include <sys/stat.h>

#include <deque>
#include <stdexcept>

namespace sim {

namespace {
constexpr int kMaxLinks = 40;

std::vector<std::string_view> split(std::string_view path) {
  std::vector<std::string_view> parts;
  size_t pos = 0;
  while (pos < path.size()) {
    size_t end = path.find('/', pos);
    if (end == std::string_view::npos) end = path.size();
    if (end > pos) parts.push_back(path.substr(pos, end - pos));
    pos = end + 1;
  }
  return parts;
}

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

std::shared_ptr<Node> Vfs::find(std::string_view path, bool follow_last, int *error, std::string *canonical) {
  auto fail = [error](int value) -> std::shared_ptr<Node> {
    if (error != nullptr) *error = value;
    return nullptr;
  };
  if (path.empty() || path.front() != '/') return fail(ENOENT);
  const bool want_dir = path.back() == '/';

  std::vector<std::pair<std::string, std::shared_ptr<Node>>> stack{{"", root_}};
  std::deque<std::string> todo;
  for (auto part : split(path))
    todo.emplace_back(part);
  int links = 0;
  while (!todo.empty()) {
    std::string name = std::move(todo.front());
    todo.pop_front();
    if (stack.back().second->kind != NodeKind::dir) return fail(ENOTDIR);
    if (name == ".") continue;
    if (name == "..") {
      if (stack.size() > 1) stack.pop_back();
      continue;
    }
    Node &dir = *stack.back().second;
    dir.fill();
    auto it = dir.children.find(key_view(name));
    if (it == dir.children.end()) return fail(ENOENT);
    const std::shared_ptr<Node> next = it->second;
    if (next->kind == NodeKind::link && (!todo.empty() || follow_last || want_dir)) {
      if (++links > kMaxLinks) return fail(ELOOP);
      if (!next->data.empty() && next->data.front() == '/') stack.resize(1);
      auto parts = split(next->data);
      for (auto part = parts.rbegin(); part != parts.rend(); ++part)
        todo.emplace_front(*part);
      continue;
    }
    stack.emplace_back(std::move(name), next);
  }
  if (want_dir && stack.back().second->kind != NodeKind::dir) return fail(ENOTDIR);
  if (canonical != nullptr) {
    canonical->clear();
    for (size_t i = 1; i < stack.size(); i++)
      canonical->append("/").append(stack[i].first);
    if (canonical->empty()) *canonical = "/";
  }
  if (error != nullptr) *error = 0;
  return stack.back().second;
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
  if (auto node = find(dir)) return node;
  put_dir(dir);
  auto node = find(dir);
  if (!node) throw std::invalid_argument("simulated path leads nowhere: " + std::string(path));
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
