#pragma once

#include <string>

namespace korvel {

/// Advice for the sender of a message that others will not see as it was written: the reason, and
/// what to write instead. Empty where they will see it whole. The message is sent unchanged in any
/// case. Any thread.
std::string messageAdvice(const std::string& text);

/// Whether a user of this name, in whatever case, is at work in the projects directory; also where
/// that cannot be told. Asks the projects directory. Any thread.
bool isAtWork(const std::string& user);

/// Advice for the sender of a message to one user: that no user of that name is present, or that
/// the message is shown otherwise than usual, and why. Else empty. Asks the projects directory. Any
/// thread.
std::string recipientAdvice(const std::string& user);

}  // namespace korvel
