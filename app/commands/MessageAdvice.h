#pragma once

#include <string>

namespace korvel {

/// What the sender of a message should know: that others will not see this text as it was written,
/// why, and what to write instead. One sentence or several; empty where they will see it whole. The
/// text goes out as it is in any case. Any thread.
std::string messageAdvice(const std::string& text);

/// What the sender of a message to one user should know: that nobody of that name is there to see
/// it, or that the message is shown otherwise than usual, and why. Empty where there is nothing to
/// say. Asks the projects directory. Any thread.
std::string recipientAdvice(const std::string& user);

}  // namespace korvel
