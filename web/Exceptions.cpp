// SPDX-License-Identifier: BSD-3-Clause
//
// Exceptions for WebAssembly. The compiler makes `throw` and `catch` of the machine's own; what it
// expects of the C++ library beside that, the library that Debian builds for this machine lacks.
// Names, layouts and meanings are those of the Itanium C++ ABI, "Exception Handling", and of the
// compiler's tables for WebAssembly. There is one thread.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <new>
#include <typeinfo>

// The library's own base of all type descriptions: its table of functions tells what catches what.
namespace __cxxabiv1 {
class __shim_type_info : public std::type_info {
 public:
  ~__shim_type_info() override;
  virtual void noop1() const;
  virtual void noop2() const;
  virtual bool can_catch(const __shim_type_info* thrown, void*& object) const = 0;
};
}  // namespace __cxxabiv1

namespace {

using Type = __cxxabiv1::__shim_type_info;

/// Stands before each thrown object; its address is what the machine throws.
struct alignas(16) Thrown {
  const Type* type = nullptr;
  void* (*destructor)(void*) = nullptr;  // on this machine they return what they are given
  void* caught = nullptr;                // the object as the handler that was found sees it
  Thrown* below = nullptr;               // the next in the pile of those that are being handled
  int handlers = 0;  // that are not through; below 0: thrown on from one of them

  void* object() { return this + 1; }
};

Thrown* handled = nullptr;  // the pile's top

[[noreturn]] void fly(Thrown* thrown) { __builtin_wasm_throw(0, thrown); }

std::uint32_t readUnsigned(const std::uint8_t*& at) {
  std::uint32_t value = 0;
  for (unsigned shift = 0;; shift += 7) {
    const std::uint8_t byte = *at++;
    value |= static_cast<std::uint32_t>(byte & 0x7f) << shift;
    if ((byte & 0x80) == 0) return value;
  }
}

std::int32_t readSigned(const std::uint8_t*& at) {
  std::uint32_t value = 0;
  for (unsigned shift = 0;;) {
    const std::uint8_t byte = *at++;
    value |= static_cast<std::uint32_t>(byte & 0x7f) << shift;
    shift += 7;
    if ((byte & 0x80) != 0) continue;
    if ((byte & 0x40) != 0 && shift < 32) value |= ~0U << shift;
    return static_cast<std::int32_t>(value);
  }
}

/// The number of the first handler of a landing pad that takes what was thrown; 0: none does.
/// Throws nothing. Tables of other encodings than this compiler's end the program.
std::uint32_t handlerFor(const std::uint8_t* table, std::uint32_t pad, Thrown& thrown) {
  constexpr std::uint8_t omitted = 0xff, pointers = 0x00, unsignedNumbers = 0x01;
  if (*table++ != omitted) std::abort();  // where landing pads begin
  if (*table++ != pointers) std::abort();
  const std::uint32_t typesAt = readUnsigned(table);
  const std::uint8_t* const typesEnd = table + typesAt;
  if (*table++ != unsignedNumbers) std::abort();
  const std::uint32_t length = readUnsigned(table);
  const std::uint8_t* const actions = table + length;
  std::uint32_t action = 0;
  for (std::uint32_t i = 0; i <= pad; ++i) {
    readUnsigned(table);  // the pad's own number
    action = readUnsigned(table);
  }
  if (action == 0) return 0;
  for (const std::uint8_t* at = actions + action - 1;;) {
    const std::int32_t filter = readSigned(at);
    if (filter < 0) std::abort();  // lists of allowed exceptions, which C++ has no more
    if (filter > 0) {
      const Type* const wanted = *(reinterpret_cast<const Type* const*>(typesEnd) - filter);
      void* object = thrown.object();
      if (wanted == nullptr || wanted->can_catch(thrown.type, object)) {
        thrown.caught = object;
        return static_cast<std::uint32_t>(filter);
      }
    }
    const std::uint8_t* const from = at;
    const std::int32_t next = readSigned(at);
    if (next == 0) return 0;
    at = from + next;
  }
}

}  // namespace

extern "C" {

/// What a landing pad leaves here before it asks, and finds here after.
struct {
  std::uint32_t pad;
  const std::uint8_t* table;
  std::uint32_t selector;
} __wasm_lpad_context;

int _Unwind_CallPersonality(void* thrown) {
  __wasm_lpad_context.selector =
      handlerFor(__wasm_lpad_context.table, __wasm_lpad_context.pad, *static_cast<Thrown*>(thrown));
  return 0;
}

void* __cxa_allocate_exception(std::size_t bytes) noexcept {
  void* const room = std::calloc(1, sizeof(Thrown) + bytes);
  if (room == nullptr) std::terminate();
  return static_cast<Thrown*>(room) + 1;
}

void __cxa_free_exception(void* object) noexcept { std::free(static_cast<Thrown*>(object) - 1); }

[[noreturn]] void __cxa_throw(void* object, std::type_info* type, void* (*destructor)(void*)) {
  Thrown* const thrown = static_cast<Thrown*>(object) - 1;
  thrown->type = static_cast<const Type*>(type);
  thrown->destructor = destructor;
  thrown->caught = object;
  fly(thrown);
}

void* __cxa_get_exception_ptr(void* exception) noexcept {
  return static_cast<Thrown*>(exception)->caught;
}

void* __cxa_begin_catch(void* exception) noexcept {
  Thrown* const thrown = static_cast<Thrown*>(exception);
  thrown->handlers = (thrown->handlers < 0 ? -thrown->handlers : thrown->handlers) + 1;
  if (handled != thrown) {
    thrown->below = handled;
    handled = thrown;
  }
  return thrown->caught;
}

void __cxa_end_catch() {
  Thrown* const thrown = handled;
  if (thrown == nullptr) return;
  if (thrown->handlers < 0) {  // it flies again: its next handler ends it
    if (++thrown->handlers == 0) handled = thrown->below;
    return;
  }
  if (--thrown->handlers > 0) return;
  handled = thrown->below;
  if (thrown->destructor != nullptr) thrown->destructor(thrown->object());
  __cxa_free_exception(thrown->object());
}

[[noreturn]] void __cxa_rethrow() {
  if (handled == nullptr) std::terminate();
  handled->handlers = -handled->handlers;
  fly(handled);
}
}

// What a thread has is destroyed when it ends; the only one never does.
extern "C" int __cxa_thread_atexit(void (*)(void*), void*, void*) { return 0; }

// The library's own ends the program when memory runs out; here that is an exception, as it is
// everywhere else.
void* operator new(std::size_t bytes) {
  void* const room = std::malloc(bytes == 0 ? 1 : bytes);
  if (room == nullptr) throw std::bad_alloc();
  return room;
}
void* operator new[](std::size_t bytes) { return operator new(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return std::malloc(bytes == 0 ? 1 : bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  return std::malloc(bytes == 0 ? 1 : bytes);
}
void operator delete(void* room) noexcept { std::free(room); }
void operator delete[](void* room) noexcept { std::free(room); }
void operator delete(void* room, std::size_t) noexcept { std::free(room); }
void operator delete[](void* room, std::size_t) noexcept { std::free(room); }
