#define FUSE_USE_VERSION 312
#include "fs.h"

#include <fcntl.h>
#include <fuse3/fuse.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <sstream>
#include <thread>

#include "common/threadSafety.h"
#include "fixture.h"

namespace kvfsim {

namespace {

SimContext& context() { return *static_cast<SimContext*>(fuse_get_context()->private_data); }

enum class Node { kNone, kDir, kCmd, kState, kVolumes, kLog, kFaults, kVolumeDir, kVolumeFile };

// A path of the mount split into what it names.
struct Where {
  Node node = Node::kNone;
  CmdFile cmd = CmdFile::kManage;
  std::string volume;    // for the volume tree
  std::string fullName;  // inside the volume: "/dir/file", "" for its root
};

Where locate(const char* path) {
  std::string p(path);
  Where w;
  static const struct {
    const char* path;
    Node node;
  } fixed[] = {{"/", Node::kDir},
               {"/Manage_KVF", Node::kDir},
               {"/control", Node::kDir},
               {"/volumes", Node::kDir},
               {"/Manage_KVF/manage.cmd", Node::kCmd},
               {"/Manage_KVF/files.cmd", Node::kCmd},
               {"/control/state.json", Node::kState},
               {"/control/volumes.json", Node::kVolumes},
               {"/control/requests.jsonl", Node::kLog},
               {"/control/faults", Node::kFaults}};
  for (const auto& f : fixed)
    if (p == f.path) {
      w.node = f.node;
      if (p == "/Manage_KVF/files.cmd") w.cmd = CmdFile::kFiles;
      return w;
    }
  const std::string root = "/volumes/";
  if (p.compare(0, root.size(), root) != 0) return w;
  size_t slash = p.find('/', root.size());
  w.volume = p.substr(root.size(), slash == std::string::npos ? std::string::npos : slash - root.size());
  w.fullName = slash == std::string::npos ? "" : p.substr(slash);
  w.node = w.fullName.empty() ? Node::kVolumeDir : Node::kVolumeFile;
  return w;
}

// What one open file holds.
struct Handle {
  Node node;
  CmdFile cmd = CmdFile::kManage;
  KVF::Mutex mutex;
  std::string request GUARDED_BY(mutex);  // management files: the request written
  std::string data GUARDED_BY(mutex);     // management files: the reply; state and faults: the snapshot
  bool eioRead GUARDED_BY(mutex) = false;
};

Handle* handleOf(fuse_file_info* fi) { return reinterpret_cast<Handle*>(fi->fh); }

// Open handles; those whose release never came before the unmount are freed at the end.
KVF::Mutex handlesMutex;
std::set<Handle*> openHandles GUARDED_BY(handlesMutex);

time_t startTime = time(nullptr);

void fillStat(struct stat* st, bool dir, mode_t mode, off_t size) {
  memset(st, 0, sizeof *st);
  st->st_mode = (dir ? S_IFDIR : S_IFREG) | mode;
  st->st_nlink = dir ? 2 : 1;
  st->st_size = size;
  st->st_uid = getuid();
  st->st_gid = getgid();
  st->st_atime = st->st_mtime = st->st_ctime = startTime;
}

// With zids as inode numbers, what is not a beast still needs a number of its
// own, far above any zid the simulator makes: the fixed files by their path,
// an implicit directory by its volume and full name.
ino_t syntheticInode(const std::string& what) { return ino_t((1ull << 63) | (std::hash<std::string>()(what) >> 1)); }

int simGetattr(const char* path, struct stat* st, fuse_file_info*) {
  Where w = locate(path);
  SimContext& c = context();
  switch (w.node) {
    case Node::kNone: return -ENOENT;
    case Node::kDir: fillStat(st, true, 0755, 0); break;
    case Node::kCmd:
    case Node::kFaults: fillStat(st, false, 0666, 0); break;
    case Node::kState:
    case Node::kVolumes: fillStat(st, false, 0444, 0); break;
    case Node::kLog: fillStat(st, false, 0444, c.log.size()); break;
    default: break;
  }
  if (w.node != Node::kVolumeDir && w.node != Node::kVolumeFile) {
    st->st_ino = syntheticInode(path);
    return 0;
  }
  std::shared_lock lock(c.model.mutex);
  Volume* v = c.model.findVolume(w.volume);
  if (!v) return -ENOENT;
  if (w.node == Node::kVolumeDir) {
    fillStat(st, true, 0755, 0);
    st->st_ino = v->rootZid;
    return 0;
  }
  Beast scratch;
  if (const Beast* b = v->beastByName(w.fullName, scratch)) {
    fillStat(st, b->isDirectory(), b->isDirectory() ? 0755 : 0644, b->isDirectory() ? 0 : off_t(b->eof));
    st->st_ino = b->zid;
    st->st_mtime = b->accessedUtc;
    return 0;
  }
  if (v->isImplicitDirectory(w.fullName)) {
    fillStat(st, true, 0755, 0);
    st->st_ino = syntheticInode(w.volume + w.fullName);
    return 0;
  }
  return -ENOENT;
}

int simReaddir(const char* path, void* buf, fuse_fill_dir_t fill, off_t, fuse_file_info*, fuse_readdir_flags) {
  Where w = locate(path);
  std::set<std::string> entries;
  SimContext& c = context();
  std::string p(path);
  if (p == "/") entries = {"Manage_KVF", "control", "volumes"};
  else if (p == "/Manage_KVF") entries = {"manage.cmd", "files.cmd"};
  else if (p == "/control") entries = {"state.json", "volumes.json", "requests.jsonl", "faults"};
  else if (p == "/volumes") {
    std::shared_lock lock(c.model.mutex);
    for (const auto& v : c.model.volumes) entries.insert(v->name);
  } else if (w.node == Node::kVolumeDir || w.node == Node::kVolumeFile) {
    std::shared_lock lock(c.model.mutex);
    Volume* v = c.model.findVolume(w.volume);
    if (!v) return -ENOENT;
    if (!v->listDirectory(w.fullName, &entries) && w.node == Node::kVolumeFile) {
      Beast scratch;
      const Beast* b = v->beastByName(w.fullName, scratch);
      if (!b) return -ENOENT;
      if (!b->isDirectory()) return -ENOTDIR;
    }
  } else {
    return -ENOTDIR;
  }
  fill(buf, ".", nullptr, 0, fuse_fill_dir_flags(0));
  fill(buf, "..", nullptr, 0, fuse_fill_dir_flags(0));
  for (const std::string& e : entries) fill(buf, e.c_str(), nullptr, 0, fuse_fill_dir_flags(0));
  return 0;
}

// What a fault rule does to a plain call (open, unlink): 0 after a delay,
// else the rule's errno (EIO unless a result value gives one).
int callFault(const std::optional<FaultRule>& rule) {
  if (!rule) return 0;
  if (rule->action == "delay") {
    std::this_thread::sleep_for(std::chrono::milliseconds(rule->ms));
    return 0;
  }
  return rule->action == "result" && rule->value > 0 ? -int(rule->value) : -EIO;
}

int simOpen(const char* path, fuse_file_info* fi) {
  Where w = locate(path);
  SimContext& c = context();
  bool writing = (fi->flags & O_ACCMODE) != O_RDONLY;
  auto h = std::make_unique<Handle>();
  // No other thread knows the handle yet; it is filled under its lock all the same.
  KVF::MutexLock filling(h->mutex);
  h->node = w.node;
  h->cmd = w.cmd;
  switch (w.node) {
    case Node::kCmd:
      if (int status = callFault(c.faults.match("open", cmdFileName(w.cmd), "", ""))) return status;
      break;
    case Node::kState:
    case Node::kVolumes: {
      if (writing) return -EACCES;
      std::ostringstream out;
      std::shared_lock lock(c.model.mutex);
      writeState(c.model, out, w.node == Node::kState);
      h->data = out.str();
      break;
    }
    case Node::kLog:
      if (writing) return -EACCES;
      break;
    case Node::kFaults: h->data = c.faults.dump(); break;
    case Node::kVolumeFile: {
      struct stat st;
      if (int r = simGetattr(path, &st, nullptr)) return r;
      if (S_ISDIR(st.st_mode)) return -EISDIR;
      if (writing) return -EACCES;
      break;
    }
    case Node::kNone: return -ENOENT;
    default: return -EISDIR;
  }
  // Replies and snapshots have no size the kernel could know in advance.
  fi->direct_io = w.node != Node::kVolumeFile;
  KVF::MutexLock lock(handlesMutex);
  openHandles.insert(h.get());
  fi->fh = reinterpret_cast<uint64_t>(h.release());
  return 0;
}

int simRelease(const char*, fuse_file_info* fi) {
  KVF::MutexLock lock(handlesMutex);
  openHandles.erase(handleOf(fi));
  delete handleOf(fi);
  return 0;
}

int readFrom(const std::string& data, char* buf, size_t size, off_t offset) {
  if (offset < 0 || size_t(offset) >= data.size()) return 0;
  size_t n = std::min(size, data.size() - size_t(offset));
  memcpy(buf, data.data() + offset, n);
  return int(n);
}

int simRead(const char* path, char* buf, size_t size, off_t offset, fuse_file_info* fi) {
  Handle* h = handleOf(fi);
  SimContext& c = context();
  KVF::MutexLock lock(h->mutex);
  switch (h->node) {
    case Node::kCmd:
      if (h->eioRead) return -EIO;
      return readFrom(h->data, buf, size, offset);
    case Node::kLog: return int(c.log.read(buf, size, offset));
    case Node::kVolumeFile: {
      struct stat st;
      if (simGetattr(path, &st, nullptr) || offset >= st.st_size) return 0;
      size_t n = std::min<off_t>(size, st.st_size - offset);
      memset(buf, 0, n);
      return int(n);
    }
    default: return readFrom(h->data, buf, size, offset);
  }
}

// The exchange fault: two names of the tree swap places, through the kernel
// so that its cached names follow (another worker thread serves the rename).
void exchangeNames(const SimContext& c, const FaultRule& rule) {
  const std::string first = c.mountDir + "/" + rule.text, second = c.mountDir + "/" + rule.with;
  if (renameat2(AT_FDCWD, first.c_str(), AT_FDCWD, second.c_str(), RENAME_EXCHANGE) != 0)
    fprintf(stderr, "kvfsim: exchange %s %s: %s\n", rule.text.c_str(), rule.with.c_str(), strerror(errno));
}

// Runs the request written into a management file, faults included;
// returns 0 or a negative errno for the write.
int exchange(SimContext& c, Handle& h) REQUIRES(h.mutex) {
  RequestPtr request = c.handler.parse(h.cmd, h.request);
  const RequestKey& key = c.handler.key(*request);
  std::optional<FaultRule> rule = c.faults.match(key.kind, cmdFileName(h.cmd), key.volume, key.zid);
  h.eioRead = false;
  if (rule && rule->action == "delay") std::this_thread::sleep_for(std::chrono::milliseconds(rule->ms));
  if (rule && rule->action == "hang") {
    // No answer until the caller gives up (a fatal signal interrupts the
    // request) or `ms` have passed: a hung file system.
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(rule->ms);
    while (!fuse_interrupted() && std::chrono::steady_clock::now() < until)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (fuse_interrupted()) {
      c.log.append(cmdFileName(h.cmd), h.request, "", "hang");
      return -EINTR;
    }
  }
  if (rule && rule->action == "exchange" && !rule->after) exchangeNames(c, *rule);
  std::string reply = !rule || rule->apply ? c.handler.execute(*request) : "";
  if (rule && rule->action == "exchange" && rule->after) exchangeNames(c, *rule);
  int status = 0;
  if (rule) {
    const std::string& a = rule->action;
    if (a == "result") reply = c.handler.resultReply(*request, rule->value);
    else if (a == "raw") reply = rule->text;
    else if (a == "empty") reply.clear();
    else if (a == "cut" || a == "pad") reply = reshapeReply(*rule, std::move(reply));
    else if (a == "repeat") reply = c.faults.previousReply(key.kind);
    else if (a == "eio_read") h.eioRead = true;
    else if (a == "eio_write") reply.clear(), status = -EIO;
  }
  c.faults.rememberReply(key.kind, reply);
  h.data = std::move(reply);
  c.log.append(cmdFileName(h.cmd), h.request, h.data, rule ? rule->action : "");
  return status;
}

int simWrite(const char*, const char* buf, size_t size, off_t offset, fuse_file_info* fi) {
  Handle* h = handleOf(fi);
  SimContext& c = context();
  KVF::MutexLock lock(h->mutex);
  if (h->node == Node::kCmd) {
    // A write at offset 0 starts a request; a write right after it continues it.
    if (offset == 0) h->request.assign(buf, size);
    else if (size_t(offset) == h->request.size()) h->request.append(buf, size);
    else return -EINVAL;
    int status = exchange(c, *h);
    return status ? status : int(size);
  }
  if (h->node == Node::kFaults) {
    // Each write holds whole rule text; a bad one fails the write.
    try {
      c.faults.load(std::string(buf, size));
      return int(size);
    } catch (const std::exception& e) {
      fprintf(stderr, "kvfsim: control/faults: %s\n", e.what());
      return -EINVAL;
    }
  }
  return -EACCES;
}

int simTruncate(const char* path, off_t, fuse_file_info*) {
  Node node = locate(path).node;
  return node == Node::kCmd || node == Node::kFaults ? 0 : -EACCES;
}

int simUnlink(const char* path) {
  Where w = locate(path);
  if (w.node != Node::kVolumeFile) return w.node == Node::kNone ? -ENOENT : -EACCES;
  SimContext& c = context();
  std::string zid;
  {
    std::shared_lock lock(c.model.mutex);
    Volume* v = c.model.findVolume(w.volume);
    Beast scratch;
    const Beast* b = v ? v->beastByName(w.fullName, scratch) : nullptr;
    if (!b) return -ENOENT;
    if (b->isDirectory()) return -EISDIR;
    zid = std::to_string(b->zid);
  }
  std::optional<FaultRule> rule = c.faults.match("unlink", "", w.volume, zid);
  int status = callFault(rule);
  if (status == 0) {
    std::unique_lock lock(c.model.mutex);
    Volume* v = c.model.findVolume(w.volume);
    Beast* b = v ? v->findByName(w.fullName) : nullptr;
    if (!b) status = -ENOENT;
    else v->removeBeast(*b);
  }
  c.log.append("volumes/" + w.volume, "unlink " + w.fullName, std::to_string(-status), rule ? rule->action : "");
  return status;
}

// Renames inside one volume's tree of a fixture (and exchanges with
// RENAME_EXCHANGE): what a user does to their own files while a run goes on.
int simRename(const char* from, const char* to, unsigned int flags) {
  Where a = locate(from), b = locate(to);
  if (a.node != Node::kVolumeFile || b.node != Node::kVolumeFile) return a.node == Node::kNone ? -ENOENT : -EACCES;
  if (a.volume != b.volume) return -EXDEV;
  if (flags & ~unsigned(RENAME_EXCHANGE | RENAME_NOREPLACE)) return -EINVAL;
  SimContext& c = context();
  std::unique_lock lock(c.model.mutex);
  Volume* v = c.model.findVolume(a.volume);
  int status = v ? v->rename(a.fullName, b.fullName, flags & RENAME_EXCHANGE) : -ENOENT;
  lock.unlock();
  c.log.append("volumes/" + a.volume, "rename " + a.fullName + " " + b.fullName, std::to_string(-status), "");
  return status;
}

void* simInit(fuse_conn_info*, fuse_config* cfg) {
  // Names and attributes stay cached for a second, which spares a scan two
  // lookups per exchange. The tree changes by unlink, which the kernel sees,
  // and by delete requests: their name may still show for that second.
  cfg->entry_timeout = 1;
  cfg->attr_timeout = 1;
  cfg->negative_timeout = 0;
  SimContext& c = *static_cast<SimContext*>(fuse_get_context()->private_data);
  cfg->use_ino = c.zidInodes;
  // An interrupted request is told to its handler (fuse_interrupted), for
  // the hang fault; the handler's thread gets SIGUSR1, which serve() catches.
  cfg->intr = 1;
  cfg->intr_signal = SIGUSR1;
  return &c;
}

}  // namespace

int serve(SimContext& context, const std::string& mountDir) {
  context.mountDir = mountDir;
  struct sigaction wake = {};
  wake.sa_handler = [](int) {};
  sigaction(SIGUSR1, &wake, nullptr);
  fuse_operations ops{};
  ops.init = simInit;
  ops.getattr = simGetattr;
  ops.readdir = simReaddir;
  ops.open = simOpen;
  ops.release = simRelease;
  ops.read = simRead;
  ops.write = simWrite;
  ops.truncate = simTruncate;
  ops.unlink = simUnlink;
  ops.rename = simRename;

  std::vector<std::string> args = {"kvfsim", "-o", "fsname=kvfsim,subtype=kvfsim,auto_unmount"};
  if (geteuid() == 0) args.back() += ",allow_other";
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  fuse_args fargs = FUSE_ARGS_INIT(int(argv.size()), argv.data());
  fuse* f = fuse_new(&fargs, &ops, sizeof ops, &context);
  if (!f) return 1;
  int status = 1;
  if (fuse_mount(f, mountDir.c_str()) == 0) {
    if (fuse_set_signal_handlers(fuse_get_session(f)) == 0) {
      // A few idle workers keep thread start-up out of a sequential scan.
      fuse_loop_config* loop = fuse_loop_cfg_create();
      fuse_loop_cfg_set_clone_fd(loop, 0);
      fuse_loop_cfg_set_idle_threads(loop, 4);
      fuse_loop_mt(f, loop);  // ends on unmount or a termination signal
      fuse_loop_cfg_destroy(loop);
      status = 0;
      fuse_remove_signal_handlers(fuse_get_session(f));
    }
    fuse_unmount(f);
  } else {
    fprintf(stderr, "kvfsim: cannot mount on %s\n", mountDir.c_str());
  }
  fuse_destroy(f);
  fuse_opt_free_args(&fargs);
  KVF::MutexLock lock(handlesMutex);
  for (Handle* h : openHandles) delete h;
  openHandles.clear();
  return status;
}

}  // namespace kvfsim
