#pragma once

// Text as it crosses the border between the host and its plug-ins.
//
// Both sides make such strings, keep copies, and drop them at any time. A plug-in's string may
// live in the host after the plug-in was unloaded, and the other way round; therefore nothing in
// here calls code of the side that made it. Copying is cheap: messages and names are handed
// through many layers unchanged.

#include <atomic>
#include <cstddef>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The host's growable array.
template <typename T>
using Vector = std::vector<T>;

/// The host's reference-counted string.
///
/// `LightweightString<char>` holds UTF-8 bytes, `LightweightString<wchar_t>` one 32-bit character
/// per element. Copies share one immutable buffer; a change makes the changed string's own buffer
/// first. A string that was never set behaves as the empty string. Strings may hold zero
/// characters: the length counts, not a terminator. Any thread may read copies of one string at the
/// same time; one string object belongs to one thread at a time.
template <typename C>
class LightweightString {
 public:
  using View = std::basic_string_view<C>;

  /// An unset string: empty, without a buffer.
  LightweightString() = default;

  /// Copies a zero-terminated text; a null pointer gives an unset string.
  LightweightString(const C* text)  // NOLINT(google-explicit-constructor): literals stand where
                                    // strings are expected
      : LightweightString(text ? View(text) : View()) {}

  /// Copies exactly `length` characters, zero characters included.
  LightweightString(const C* text, std::size_t length) : LightweightString(View(text, length)) {}

  /// Copies the characters of a view.
  explicit LightweightString(View text) {
    if (!text.empty()) buffer_ = Buffer::make(text, View());
  }

  LightweightString(const LightweightString& other) : buffer_(other.buffer_) {
    if (buffer_) buffer_->users.fetch_add(1, std::memory_order_relaxed);
  }
  LightweightString(LightweightString&& other) noexcept
      : buffer_(std::exchange(other.buffer_, nullptr)) {}
  LightweightString& operator=(LightweightString other) noexcept {
    std::swap(buffer_, other.buffer_);
    return *this;
  }
  ~LightweightString() { clear(); }

  /// The number of characters; the terminator does not count.
  [[nodiscard]] std::size_t size() const { return view().size(); }
  [[nodiscard]] bool empty() const { return size() == 0; }

  /// The characters, zero-terminated; valid until this string changes or is destroyed.
  [[nodiscard]] const C* c_str() const { return buffer_ ? buffer_->text() : &kTerminator; }
  [[nodiscard]] View view() const {
    return buffer_ ? View(buffer_->text(), buffer_->size) : View();
  }

  /// A copy that this string has no part in.
  [[nodiscard]] std::basic_string<C> str() const { return std::basic_string<C>(view()); }

  /// The character at `index`, which must be smaller than size().
  C operator[](std::size_t index) const { return buffer_->text()[index]; }

  /// Makes this the empty string.
  void clear() {
    Buffer* const buffer = std::exchange(buffer_, nullptr);
    if (buffer && buffer->users.fetch_sub(1, std::memory_order_acq_rel) == 1) Buffer::drop(buffer);
  }

  /// Appends; copies of this string made before keep their text.
  LightweightString& operator+=(const LightweightString& tail) { return append(tail.view()); }
  LightweightString& operator+=(const C* tail) { return append(View(tail)); }
  LightweightString& operator+=(C tail) { return append(View(&tail, 1)); }

  friend LightweightString operator+(LightweightString head, const LightweightString& tail) {
    return head += tail;
  }
  friend LightweightString operator+(LightweightString head, const C* tail) { return head += tail; }

  /// Exact comparisons, element by element: case-sensitive, no locale. Two unset strings are equal.
  friend bool operator==(const LightweightString& a, const LightweightString& b) {
    return a.view() == b.view();
  }
  friend bool operator!=(const LightweightString& a, const LightweightString& b) {
    return a.view() != b.view();
  }
  friend bool operator<(const LightweightString& a, const LightweightString& b) {
    return a.view() < b.view();
  }
  friend bool operator==(const LightweightString& a, const C* b) { return a.view() == View(b); }
  friend bool operator!=(const LightweightString& a, const C* b) { return a.view() != View(b); }

 private:
  /// A text and how many strings share it, in one block of memory: the characters and their
  /// terminator lie behind the head. Without virtual functions: a string that a plug-in made may be
  /// kept by the host after the plug-in's code is gone.
  struct Buffer {
    explicit Buffer(std::size_t length) : size(length) {}

    static Buffer* make(View head, View tail) {
      const std::size_t length = head.size() + tail.size();
      void* const memory = ::operator new(sizeof(Buffer) + (length + 1) * sizeof(C));
      auto* const buffer = new (memory) Buffer(length);
      C* const text = reinterpret_cast<C*>(buffer + 1);
      std::char_traits<C>::copy(text, head.data(), head.size());
      std::char_traits<C>::copy(text + head.size(), tail.data(), tail.size());
      text[length] = C();
      return buffer;
    }

    static void drop(Buffer* buffer) {
      buffer->~Buffer();
      ::operator delete(buffer);
    }

    [[nodiscard]] const C* text() const { return reinterpret_cast<const C*>(this + 1); }

    const std::size_t size;
    std::atomic<std::size_t> users{1};
  };
  static_assert(alignof(Buffer) >= alignof(C));

  LightweightString& append(View tail) {
    if (tail.empty()) return *this;
    Buffer* const whole = Buffer::make(view(), tail);
    clear();
    buffer_ = whole;
    return *this;
  }

  static constexpr C kTerminator{};

  Buffer* buffer_ = nullptr;
};
