#include "wire/key_secret.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#ifdef ZRSV_WITH_CRYPTO
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#endif

#include "zrsv/of_thread.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

namespace detail {
std::atomic<bool> keys_are_signed{false};
}

#ifdef ZRSV_WITH_CRYPTO

namespace {

constexpr std::size_t least = 32, most = 4096;  // octets of a secret

struct Free {
  void operator()(EVP_MAC_CTX* context) const { EVP_MAC_CTX_free(context); }
  void operator()(EVP_MAC* mac) const { EVP_MAC_free(mac); }
};
using Context = std::unique_ptr<EVP_MAC_CTX, Free>;

/// What threads copy when they sign first.
struct Secret {
  Mutex mutex;
  Context context ZR_GUARDED_BY(mutex);
  std::atomic<unsigned> version{1};  // written with the mutex held
};

Secret& secret() {
  static auto& one = *new Secret;
  return one;
}

/// A thread's own.
struct Signer {
  Context context;
  unsigned version = 0;

  void renew() {
    Secret& from = secret();
    const MutexLock lock(from.mutex);
    context.reset(from.context ? EVP_MAC_CTX_dup(from.context.get()) : nullptr);
    version = from.version;
  }
};

class Descriptor {
 public:
  explicit Descriptor(const char* path) : fd_(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  const int fd_;
};

/// "", or why it cannot be the secret.
std::string read_secret(const char* path, std::array<unsigned char, most>* to, std::size_t* size) {
  const Descriptor file(path);
  struct stat about {};
  if (file.get() < 0 || ::fstat(file.get(), &about) != 0) return std::strerror(errno);
  if (!S_ISREG(about.st_mode)) return "is no ordinary file";
  if (about.st_mode & (S_IRWXG | S_IRWXO)) return "is open to others than its owner (chmod 600)";
  if (about.st_size < static_cast<off_t>(least) || about.st_size > static_cast<off_t>(most))
    return "has " + std::to_string(about.st_size) + " octets; a secret has 32 to 4096";
  const ssize_t n = ::read(file.get(), to->data(), to->size());
  if (n != about.st_size) return n < 0 ? std::strerror(errno) : "changes while it is read";
  *size = static_cast<std::size_t>(n);
  return {};
}

Context keyed_with(const unsigned char* key, std::size_t size) {
  const std::unique_ptr<EVP_MAC, Free> hmac(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
  Context context(hmac ? EVP_MAC_CTX_new(hmac.get()) : nullptr);
  char digest[] = "SHA256";
  const OSSL_PARAM parameters[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                                   OSSL_PARAM_construct_end()};
  if (context && EVP_MAC_init(context.get(), key, size, parameters) != 1) context.reset();
  return context;
}

}  // namespace

std::string load_key_secret(const std::string& path) {
  Context context;
  if (!path.empty()) {
    std::array<unsigned char, most> key;
    std::size_t size = 0;
    const std::string wrong = read_secret(path.c_str(), &key, &size);
    if (!wrong.empty()) return "-ORBKeySecret: " + path + ": " + wrong;
    context = keyed_with(key.data(), size);
    OPENSSL_cleanse(key.data(), key.size());
    if (!context) return "-ORBKeySecret: HMAC-SHA-256 cannot be had";
  }
  Secret& to = secret();
  const MutexLock lock(to.mutex);
  to.context = std::move(context);
  ++to.version;
  detail::keys_are_signed = !path.empty();
  return {};
}

Signature sign_key(std::string_view octets) {
  Signer for_once;  // a thread that ends has none of its own
  Signer* const own = of_thread<Signer>();
  Signer& signer = own ? *own : for_once;
  if (signer.version != secret().version.load(std::memory_order_acquire)) signer.renew();
  unsigned char whole[32];
  std::size_t size = 0;
  EVP_MAC_CTX* const context = signer.context.get();
  if (!context || EVP_MAC_init(context, nullptr, 0, nullptr) != 1 ||
      EVP_MAC_update(context, reinterpret_cast<const unsigned char*>(octets.data()), octets.size()) != 1 ||
      EVP_MAC_final(context, whole, &size, sizeof whole) != 1) {
    signer.version = 0;
    throw std::bad_alloc();
  }
  Signature signature;
  std::memcpy(signature.data(), whole, signature.size());
  return signature;
}

bool equal_signatures(std::string_view a, std::string_view b) {
  return CRYPTO_memcmp(a.data(), b.data(), signature_size) == 0;
}

#else

std::string load_key_secret(const std::string& path) {
  return path.empty() ? std::string() : "-ORBKeySecret: this library was built without libcrypto";
}
Signature sign_key(std::string_view) { throw std::bad_alloc(); }
bool equal_signatures(std::string_view a, std::string_view b) { return a == b; }

#endif

}  // namespace zrsv
