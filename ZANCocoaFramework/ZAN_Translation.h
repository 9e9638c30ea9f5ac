#pragma once

#include <string>
#include <string_view>

namespace corvana {

class ZAN_StringTable;

/// Where the sentence is read, which decides what its remedies are.
enum class ReadAt {
  terminal,  ///< or in a mail: by a command
  window     ///< by what stands in the windows
};

/// What another program of ours has said, or recorded, in English, in the language of the table:
/// records stay the same whoever reads them, and every reader sees his own language.
///
/// The table has such a sentence under "Said: " and its English words, with "%@" for what differs;
/// "%1$@" and so on in the translation stand for these, each of them translated in turn. Of several
/// that fit the one with most words of its own counts. Lines are translated one by one, and of a
/// line that the table does not know what follows its first ": " that it knows. The rest stays as
/// it is. What is read in a window is looked for under "In windows: " first.
std::string translated(const ZAN_StringTable& texts, std::string_view english,
                       ReadAt where = ReadAt::terminal);

}  // namespace corvana
