#pragma once

// One change of an edit as it travels: from the host to the plug-in, as text to the other
// stations, and there to the host again.
//
//     trim of clip 0/2/1 to 1.5 s .. 5 s   <->   "1;1.5;5;0%2F2%2F1;"
//
// The kinds are numbers of the host. A plug-in looks at few of them and passes the others on, so
// that a newer station's kind reaches another newer station through an older plug-in.

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"
#include "host/base/NumRange.h"

/// What kind of change a modification is; the numbers are the host's and travel between stations.
/// Other numbers are carried unchanged and change nothing here.
enum EditModificationType : int {
  eModNone = 0,
  eModTrim =
      1,  ///< a clip shows another stretch of its material; `range` is the new one, in seconds
  eModRename = 2,  ///< the edit has another name
  eModContentsChanged =
      32,  ///< the whole content may have changed; also the kind by which dirtying is judged
  eModOwnerChanged = 53,  ///< the edit has another owner
  eModCreated = 55,       ///< the edit or log is new
};

/// The host's record of one change to an edit.
///
/// Text form, ASCII, no byte above 0x7E and no separator of the wire text:
///
///     type ; start ; end ; subject ; value
///
/// `type` as decimal, `start` and `end` as the shortest decimal that reads back the same double
/// ("inf", "-inf" and "nan" included), `subject` and `value` as UTF-8 bytes of which every byte
/// that is not a letter, digit, "-", "_", "." or "~" is written as "%" and two upper-case hex
/// digits. A text that is not of this form reads as a default modification, as far as it was
/// understood. Reading does not put the range in order.
class KV_HOST_API EditModification {
 public:
  /// Type 0, range 0 to 0, empty texts.
  EditModification() = default;
  explicit EditModification(EditModificationType type) : type_(type) {}

  /// Reads the text form; never fails (above).
  explicit EditModification(const LightweightString<char>& text);

  [[nodiscard]] LightweightString<char> asString() const;

  EditModificationType type_ = eModNone;
  NumRange<double> range_;
  LightweightString<char> subject_;  ///< what was changed in the edit: a trim's clip, as its path
                                     ///< of child indices "0/2/1"
  LightweightString<char> value_;    ///< the new text, UTF-8: a rename's name
};
