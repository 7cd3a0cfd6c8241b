// SPDX-License-Identifier: BSD-3-Clause
//
// Exceptions for WebAssembly (web/Exceptions.cpp): what is caught where, what is destroyed when,
// and that nothing is left behind. Runs in node; exits with the number of things that went wrong.
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

int wrong = 0;
std::string trace;

void expect(const char* what, const std::string& expected) {
  if (trace != expected) {
    std::printf("%s: expected '%s', found '%s'\n", what, expected.c_str(), trace.c_str());
    ++wrong;
  }
  trace.clear();
}

struct Noted {
  explicit Noted(const char* name) : name(name) {}
  ~Noted() { trace += std::string("~") + name + ' '; }
  Noted(const Noted&) = delete;
  Noted& operator=(const Noted&) = delete;
  const char* name;
};

int alive = 0;

struct First {
  First() { ++alive; }
  First(const First&) { ++alive; }
  virtual ~First() { --alive; }
  int number = 1;
};
struct Second {
  virtual ~Second() = default;
  int number = 2;
};
struct Both : First, Second {
  std::string text = "longer than what a string holds in itself";
};

[[gnu::noinline]] void fail(int kind) {
  const Noted inside("inside");
  switch (kind) {
    case 0:
      throw std::runtime_error("run");
    case 1:
      throw Both();
    case 2:
      throw 7;
    case 3:
      std::vector<int>().at(3) = 1;
      break;
    default:
      std::string(static_cast<std::size_t>(-1), 'x');
  }
}

void nested(int kind) {
  try {
    try {
      const Noted between("between");
      fail(kind);
    } catch (const Second& second) {
      trace += "second" + std::to_string(second.number) + ' ';
      throw;
    } catch (int number) {
      trace += "int" + std::to_string(number) + ' ';
      throw std::runtime_error("from int");
    }
  } catch (const std::runtime_error& error) {
    trace += error.what();
  } catch (const std::logic_error&) {
    trace += "logic";
  } catch (...) {
    trace += "any";
  }
}

}  // namespace

int main() {
  const char* const expected[] = {"run", "second2 any", "int7 from int", "logic", "logic"};
  for (int kind = 0; kind < 5; ++kind) {
    nested(kind);
    expect("nested", std::string("~inside ~between ") + expected[kind]);
  }
  try {
    throw 1;
  } catch (int one) {
    try {
      throw 2;
    } catch (int) {
      try {
        throw;  // the inner one
      } catch (int two) {
        trace += std::to_string(two);
      }
    }
    try {
      throw;  // the outer one again
    } catch (int again) {
      trace += std::to_string(again) + std::to_string(one);
    }
  }
  expect("handlers in handlers", "211");
  try {
    void* volatile room = operator new(0xf0000000u);
    trace += room == nullptr ? "null" : "room";
  } catch (const std::bad_alloc&) {
    trace += "no memory";
  }
  expect("memory", "no memory");
  // 5 GB would not fit if any of it were left behind.
  for (int i = 0; i < 20000; ++i) {
    try {
      const std::vector<char> held(1 << 17, 'x');
      const std::unique_ptr<char[]> more(new char[1 << 17]);
      fail(held.empty() || !more ? 0 : 1);
    } catch (const First&) {
    }
    trace.clear();
  }
  if (alive != 0) {
    std::printf("%d exceptions were not destroyed\n", alive);
    ++wrong;
  }
  std::printf("%d wrong\n", wrong);
  return wrong;
}
