#pragma once

namespace korvel {

/// Puts this process and those that it starts from now on into a network of their own, in which
/// there is loopback alone, so that nothing that is measured leaves the machine or meets others'
/// messages. False where this user or system may not: then the machine's own loopback serves.
bool enterOwnNetwork();

}  // namespace korvel
