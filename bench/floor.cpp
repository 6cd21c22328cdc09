// Makes the system calls that a load owes to its proofs, and the digests, and nothing else.
//
// It parses no JSON and holds no host value: what a load costs above this program is what the
// module adds. Members and digests come from a list, one "<sha256> <size> <path>" a line, the
// sidecar's line first. Every failure ends the program.

#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "floor_support.h"

namespace {

using lower_bound::Checked;
using lower_bound::Clocks;
using lower_bound::Duplicate;
using lower_bound::Fail;
using lower_bound::kDirectoryFlags;
using lower_bound::kLeafFlags;
using lower_bound::Require;
using lower_bound::SameObject;
using lower_bound::StatOf;

constexpr std::size_t kChunkBytes = 1U << 20;

using Segments = std::vector<std::string>;
using Digest = std::array<unsigned char, 32>;

struct Member {
  std::string path;
  off_t size;
  Digest digest;
};

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
         a.st_mtim.tv_nsec == b.st_mtim.tv_nsec && a.st_ctim.tv_sec == b.st_ctim.tv_sec &&
         a.st_ctim.tv_nsec == b.st_ctim.tv_nsec && SameObject(a, b);
}

// Takes `current` over; the last directory comes back in its place.
int Step(int current, const char* segment) {
  const int following = Checked(openat(current, segment, kDirectoryFlags), "open directory");
  Require(S_ISDIR(StatOf(following).st_mode), "directory");
  close(current);
  return following;
}

Segments SplitRoot(std::string_view root) {
  Segments segments;
  std::size_t begin = 1;
  while (begin < root.size()) {
    const std::size_t end = std::min(root.find('/', begin), root.size());
    segments.emplace_back(root.substr(begin, end - begin));
    begin = end + 1;
  }
  return segments;
}

class Root {
 public:
  explicit Root(std::string_view path) : segments_(SplitRoot(path)), descriptor_(WalkFromTop()) {}
  ~Root() { close(descriptor_); }
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;

  void Prove() const {
    const int current = WalkFromTop();
    const struct stat pinned = StatOf(descriptor_);
    const struct stat found = StatOf(current);
    Require(SameObject(pinned, found), "root proof");
    close(current);
  }

  // The parent's descriptor, for the caller to close; `leaf` becomes the last segment.
  int OpenParent(const std::string& path, const char*& leaf) const {
    int current = Duplicate(descriptor_);
    std::array<char, 4096> segment;
    std::size_t begin = 0;
    for (std::size_t end = path.find('/'); end != path.npos; end = path.find('/', begin)) {
      segment[path.copy(segment.data(), std::min(end - begin, segment.size() - 1), begin)] = 0;
      current = Step(current, segment.data());
      begin = end + 1;
    }
    leaf = path.c_str() + begin;
    return current;
  }

  // -1 if the leaf is absent.
  int OpenLeaf(const std::string& path) const {
    const char* leaf = nullptr;
    const int parent = OpenParent(path, leaf);
    const int file = openat(parent, leaf, kLeafFlags);
    Require(file >= 0 || errno == ENOENT, "open leaf");
    if (file >= 0) Require(S_ISREG(StatOf(file).st_mode), "regular");
    close(parent);
    return file;
  }

  void ProvePath(const std::string& path, const struct stat& expected) const {
    const char* leaf = nullptr;
    const int parent = OpenParent(path, leaf);
    struct stat found;
    Checked(fstatat(parent, leaf, &found, AT_SYMLINK_NOFOLLOW), "fstatat");
    Require(S_ISREG(found.st_mode) && SameFile(found, expected), "path proof");
    close(parent);
  }

 private:
  int WalkFromTop() const {
    int current = Checked(open("/", kDirectoryFlags), "open /");
    for (const std::string& segment : segments_) current = Step(current, segment.c_str());
    return current;
  }

  Segments segments_;
  int descriptor_;
};

alignas(64) std::array<unsigned char, kChunkBytes> chunk;

std::size_t ReadChunk(int file) {
  const ssize_t count = read(file, chunk.data(), chunk.size());
  Require(count >= 0, "read");
  return static_cast<std::size_t>(count);
}

class Sha256 {
 public:
  Sha256() : context_(EVP_MD_CTX_new()), kind_(EVP_MD_fetch(nullptr, "SHA256", nullptr)) {}
  ~Sha256() {
    EVP_MD_free(kind_);
    EVP_MD_CTX_free(context_);
  }
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void Begin() { Require(EVP_DigestInit_ex2(context_, kind_, nullptr) == 1, "digest"); }
  void Add(const void* bytes, std::size_t count) {
    Require(EVP_DigestUpdate(context_, bytes, count) == 1, "digest");
  }
  Digest End() {
    Digest result;
    Require(EVP_DigestFinal_ex(context_, result.data(), nullptr) == 1, "digest");
    return result;
  }

 private:
  EVP_MD_CTX* context_;
  EVP_MD* kind_;
};

std::string ReadWhole(const Root& root, const std::string& path) {
  const int file = root.OpenLeaf(path);
  Require(file >= 0, "missing");
  const struct stat before = StatOf(file);
  Require(S_ISREG(before.st_mode), "regular");
  std::string bytes;
  bytes.reserve(static_cast<std::size_t>(before.st_size));
  while (const std::size_t count = ReadChunk(file)) {
    bytes.append(reinterpret_cast<const char*>(chunk.data()), count);
  }
  const struct stat after = StatOf(file);
  Require(SameFile(before, after) && static_cast<off_t>(bytes.size()) == after.st_size, "stable");
  root.ProvePath(path, after);
  root.Prove();
  close(file);
  return bytes;
}

Digest HashFile(const Root& root, const std::string& path, Sha256& sha, off_t& size) {
  const int file = root.OpenLeaf(path);
  Require(file >= 0, "missing");
  const struct stat before = StatOf(file);
  Require(S_ISREG(before.st_mode), "regular");
  Require(lseek(file, 0, SEEK_SET) == 0, "lseek");
  sha.Begin();
  size = 0;
  while (const std::size_t count = ReadChunk(file)) {
    sha.Add(chunk.data(), count);
    size += static_cast<off_t>(count);
  }
  const struct stat after = StatOf(file);
  Require(SameFile(before, after) && size == after.st_size, "stable");
  const Digest digest = sha.End();
  const struct stat last = StatOf(file);
  Require(SameFile(after, last), "stable");
  root.ProvePath(path, last);
  root.Prove();
  close(file);
  return digest;
}

void StatFile(const Root& root, const std::string& path) {
  const int file = root.OpenLeaf(path);
  Require(file >= 0, "missing");
  root.ProvePath(path, StatOf(file));
  root.Prove();
  close(file);
}

Digest FromHex(const std::string& text) {
  Require(text.size() == 64, "list");
  Digest digest;
  for (std::size_t i = 0; i < digest.size(); ++i) {
    digest[i] = static_cast<unsigned char>(std::stoi(text.substr(2 * i, 2), nullptr, 16));
  }
  return digest;
}

std::vector<Member> ReadList(const char* name) {
  std::ifstream lines(name);
  std::vector<Member> members;
  std::string digest;
  Member member{};
  while (lines >> digest >> member.size >> member.path) {
    member.digest = FromHex(digest);
    members.push_back(member);
  }
  Require(!members.empty(), "list");
  return members;
}

void Load(std::string_view path, const std::vector<Member>& members, Sha256& sha) {
  const Root root(path);
  ReadWhole(root, "manifest.json");
  Require(root.OpenLeaf("signals_index.json") < 0, "legacy");
  const std::string sidecar = ReadWhole(root, members.front().path);
  sha.Begin();
  sha.Add(sidecar.data(), sidecar.size());
  Require(sha.End() == members.front().digest, "sidecar");
  for (std::size_t i = 1; i < members.size(); ++i) {
    off_t size = 0;
    const Digest digest = HashFile(root, members[i].path, sha, size);
    Require(size == members[i].size && digest == members[i].digest, "member");
  }
  root.Prove();
  root.Prove();  // once for the load, once for the end of the pin
}

void Repeat(std::string_view operation, const char* path, const std::string& leaf, long rounds,
            Sha256& sha) {
  if (operation == "pin") {
    for (long i = 0; i < rounds; ++i) const Root root(path);
    return;
  }
  const Root root(path);
  off_t size = 0;
  for (long i = 0; i < rounds; ++i) {
    if (operation == "prove")
      root.Prove();
    else if (operation == "read")
      ReadWhole(root, leaf);
    else if (operation == "hash")
      HashFile(root, leaf, sha, size);
    else if (operation == "stat")
      StatFile(root, leaf);
    else
      Fail("operation");
  }
}

}  // namespace

int main(int count, char** arguments) {
  const std::string_view operation = count > 1 ? arguments[1] : "";
  const bool load = operation == "load" && count == 4;
  if (!load && count != 5) {
    std::fputs("floor load ROOT LIST | floor pin|prove|read|hash|stat ROOT PATH ROUNDS\n", stderr);
    return 2;
  }
  Sha256 sha;
  const std::vector<Member> members = load ? ReadList(arguments[3]) : std::vector<Member>{};
  const Clocks clocks;
  if (load) {
    Load(arguments[2], members, sha);
  } else {
    Repeat(operation, arguments[2], arguments[3], std::atol(arguments[4]), sha);
  }
  clocks.Print();
  return 0;
}
