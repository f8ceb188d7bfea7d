#pragma once

namespace korvel {

/// Makes timelines known to screen readers: a list of their items, from the highest track's first
/// to the lowest track's last, each with its name, track, length and place; the chosen one has the
/// focus. To be called before the first timeline is looked at; more than once does no harm. Window
/// thread.
void installTimelineAccess();

}  // namespace korvel
