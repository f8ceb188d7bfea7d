#pragma once

#include <string>
#include <utility>
#include <variant>

namespace korvel {

/// What kind of failure an operation met.
enum class ErrorCode {
  eUsage,      ///< the request makes no sense as it stands: a wrong word, number or name
  eNotFound,   ///< no such object, file or folder
  eExists,     ///< something of this name is there already
  eNoProject,  ///< no project is open
  eRefused,    ///< the permission rules or a holder do not allow it
  eHeld,       ///< another station holds it
  eNoRights,   ///< the file system does not allow it to this user
  eNoLockService,
  eStale,
  eReadOnly,
  eFull,
  eBadContent,  ///< a file or text cannot be understood
  eChanged,     ///< another changed it since it was read here
  eUnsaved,     ///< unsaved changes would be lost
  eSystem,      ///< anything else the operating system said
};

/// A failure: what happened, in a sentence for the user that names the object and what can be done;
/// the path concerned, or empty.
struct Error {
  ErrorCode code = ErrorCode::eSystem;
  std::string message;
  std::string path;
};

/// Either a value or an Error.
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : content_(std::move(value)) {}      // NOLINT(google-explicit-constructor)
  Result(Error error) : content_(std::move(error)) {}  // NOLINT(google-explicit-constructor)

  explicit operator bool() const { return std::holds_alternative<T>(content_); }

  /// The value; only when the result holds one.
  T& operator*() { return std::get<T>(content_); }
  const T& operator*() const { return std::get<T>(content_); }
  T* operator->() { return &std::get<T>(content_); }
  const T* operator->() const { return &std::get<T>(content_); }

  /// The failure; only when the result holds one.
  [[nodiscard]] const Error& error() const { return std::get<Error>(content_); }

 private:
  std::variant<T, Error> content_;
};

/// Success without a value, or an Error.
template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Error error)
      : failed_(true), error_(std::move(error)) {}  // NOLINT(google-explicit-constructor)

  explicit operator bool() const { return !failed_; }
  [[nodiscard]] const Error& error() const { return error_; }

 private:
  bool failed_ = false;
  Error error_;
};

}  // namespace korvel
