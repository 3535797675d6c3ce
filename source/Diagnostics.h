// Every message the converter prints on the console, known by the fixed text
// its line starts with: how serious it is and what it means. The manual
// page's DIAGNOSTICS section lists exactly these rows, in this order.
#pragma once

#include <string_view>
#include <vector>

namespace tolvin {

enum class Severity {
  kInformation,  // progress, or a fact about the input
  kWarning,      // something was left out or approximated
  kError,        // a file or the whole conversion failed
};

struct Diagnostic {
  std::string_view prefix;   // the start of the console line, exactly as printed
  Severity severity;
  std::string_view meaning;  // one line of the manual page
};

// Every row: errors first, then warnings, then information.
const std::vector<Diagnostic>& diagnostics();

// The row whose prefix begins `line` (the longest, when several do); null
// for a line that is no diagnostic: the banner, the usage box, the echo of
// the arguments and the star lines.
const Diagnostic* findDiagnostic(std::string_view line);

}  // namespace tolvin
