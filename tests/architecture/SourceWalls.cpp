#include "tests/architecture/SourceWalls.h"

#include <algorithm>
#include <cctype>

namespace architecture {

namespace {

bool isWordCharacter(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
}

/// Where what begins at a place ends, when it is a comment or a literal; the place itself otherwise.
std::size_t endOfNoCode(std::string_view text, std::size_t at) {
  const auto after = [&](std::string_view end, std::size_t from) {
    const auto found = text.find(end, from);
    return found == std::string_view::npos ? text.size() : found + end.size();
  };
  const std::string_view rest = text.substr(at);
  if (rest.starts_with("//")) {
    return std::min(text.find('\n', at), text.size());
  }
  if (rest.starts_with("/*")) {
    return after("*/", at + 2);
  }
  if (rest.starts_with("R\"")) {
    const auto open = text.find('(', at);
    return after(")" + std::string(text.substr(at + 2, open - at - 2)) + "\"", open);
  }
  const bool isDigitSeparator = rest.starts_with('\'') && at > 0 && isWordCharacter(text[at - 1]);
  if ((!rest.starts_with('"') && !rest.starts_with('\'')) || isDigitSeparator) {
    return at;
  }
  std::size_t end = at + 1;
  while (end < text.size() && text[end] != text[at] && text[end] != '\n') {
    end += text[end] == '\\' ? 2 : 1;
  }
  return std::min(end + 1, text.size());
}

/// Whether the word at a place is called as a function of the library: `name(` or `std::name(`, no method and no other
/// namespace's.
bool isLibraryCall(std::string_view code, std::size_t at, std::size_t length) {
  if (at + length >= code.size() || code[at + length] != '(' || (at > 0 && isWordCharacter(code[at - 1]))) {
    return false;
  }
  const std::string_view before = code.substr(0, at);
  if (before.ends_with("::")) {
    return before.ends_with("std::") || before.ends_with("filesystem::") ||
           (before.size() > 2 && !isWordCharacter(before[before.size() - 3]));
  }
  return !before.ends_with(".") && !before.ends_with("->");
}

bool calls(std::string_view code, std::string_view name) {
  for (auto at = code.find(name); at != std::string_view::npos; at = code.find(name, at + 1)) {
    if (isLibraryCall(code, at, name.size())) {
      return true;
    }
  }
  return false;
}

std::size_t indentationOf(const std::string& line) { return std::min(line.find_first_not_of(' '), line.size()); }

bool isBlank(const std::string& line) { return indentationOf(line) == line.size(); }

bool opensAScopeOfNames(std::string_view line) {
  for (const char* word : {"namespace", "class ", "struct ", "enum ", "union ", "extern "}) {
    if (line.find(word) != std::string_view::npos) {
      return true;
    }
  }
  return false;
}

/// The line after a function that begins at a line; the line itself when none begins there.
std::size_t endOfFunction(const std::vector<std::string>& lines, std::size_t begin) {
  const std::size_t indentation = indentationOf(lines[begin]);
  std::size_t head = begin;
  // A head may take several lines; it is none when a line ends it otherwise.
  while (head < lines.size() && !lines[head].ends_with('{')) {
    const bool goesOn = !isBlank(lines[head]) && !opensAScopeOfNames(lines[head]) && !lines[head].ends_with(';') &&
                        !lines[head].ends_with('}') && !lines[head].ends_with(':') && lines[head].front() != '#';
    if (!goesOn) {
      return begin;
    }
    ++head;
  }
  if (head == lines.size() || opensAScopeOfNames(lines[head])) {
    return begin;
  }
  for (std::size_t line = head + 1; line < lines.size(); ++line) {
    if (indentationOf(lines[line]) <= indentation && lines[line].find('}') != std::string::npos) {
      return line + 1;
    }
  }
  return begin;
}

}  // namespace

const std::vector<BannedCall>& bannedCalls() {
  static const std::vector<BannedCall> kBanned = {
      {"system", "foundation::Task, which asks no shell"},
      {"popen", "foundation::Task, which asks no shell"},
      {"vfork", "foundation::Task"},
      {"execlp", "foundation::Task with an absolute path"},
      {"execvp", "foundation::Task with an absolute path"},
      {"posix_spawnp", "foundation::Task with an absolute path"},
      {"mktemp", "foundation::temporary_names or foundation::PreparedFile"},
      {"tmpnam", "foundation::temporary_names or foundation::PreparedFile"},
      {"tempnam", "foundation::temporary_names or foundation::PreparedFile"},
      {"tmpfile", "foundation::temporary_names or foundation::PreparedFile"},
      {"remove_all", "foundation::files::removeItem, which is not led astray by links"},
      {"alloca", "std::array or std::vector"},
      {"strcpy", "std::string"},
      {"strcat", "std::string"},
      {"strtok", "std::string_view::find"},
      {"sprintf", "std::snprintf or foundation::format"},
      {"vsprintf", "std::snprintf or foundation::format"},
      {"gets", "std::getline"},
      {"atoi", "std::from_chars, which tells a number from none"},
      {"atol", "std::from_chars, which tells a number from none"},
      {"atof", "std::from_chars, which tells a number from none"},
      {"rand", "the system's random bytes, general/foundation/RandomPrimitives.h"},
      {"random", "the system's random bytes, general/foundation/RandomPrimitives.h"},
      {"sleep", "a turn of the run loop"},
      {"usleep", "a turn of the run loop"},
      {"nanosleep", "a turn of the run loop"},
      {"sleep_for", "a turn of the run loop"},
      {"setenv", "a parameter: other threads read the environment meanwhile"},
      {"putenv", "a parameter: other threads read the environment meanwhile"},
  };
  return kBanned;
}

std::string codeOf(std::string_view text) {
  std::string code;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = endOfNoCode(text, at);
    if (end == at) {
      code.push_back(text[at++]);
      continue;
    }
    for (; at < end; ++at) {
      code.push_back(text[at] == '\n' ? '\n' : ' ');
    }
  }
  return code;
}

Problems callsOf(const House& house, const std::vector<BannedCall>& banned) {
  Problems problems;
  for (const SourceFile& file : house.files) {
    const std::string code = codeOf(file.text);
    for (const BannedCall& call : banned) {
      if (calls(code, call.name)) {
        problems.push_back(sentence({file.path, " calls ", call.name, ": use ", call.instead}));
      }
    }
  }
  return problems;
}

Problems filesLongerThan(const House& house, std::size_t lines) {
  Problems problems;
  for (const SourceFile& file : house.files) {
    if (const auto count = linesOf(file.text).size(); count > lines) {
      problems.push_back(sentence({file.path, " has ", std::to_string(count), " lines, of ", std::to_string(lines)}));
    }
  }
  return problems;
}

Problems functionsLongerThan(const House& house, std::size_t lines) {
  Problems problems;
  for (const SourceFile& file : house.files) {
    const auto text = linesOf(codeOf(file.text));
    for (std::size_t begin = 0; begin < text.size();) {
      const std::size_t end = endOfFunction(text, begin);
      if (end - begin > lines) {
        problems.push_back(sentence({file.path, ":", std::to_string(begin + 1), " begins a function of ",
                                     std::to_string(end - begin), " lines, of ", std::to_string(lines)}));
      }
      begin = std::max(end, begin + 1);
    }
  }
  return problems;
}

Problems systemQuestions(const House& house) {
  Problems problems;
  for (const SourceFile& file : house.files) {
    const std::string code = codeOf(file.text);
    for (const char* question : {"__linux__", "__APPLE__", "__MACH__", "__unix__"}) {
      if (code.find(question) != std::string::npos) {
        problems.push_back(sentence({file.path, " asks for ", question, ": give each system a source of its own"}));
      }
    }
  }
  return problems;
}

Problems codeOutside(const House& house, std::string_view code, const std::vector<std::string_view>& names) {
  Problems problems;
  for (const SourceFile& file : house.files) {
    const std::string pair = pairOf(file.path);
    const std::string name = pair.substr(pair.rfind('/') + 1);
    // Reading code out of a text is the dear part, and few texts have what is looked for.
    if (std::ranges::find(names, name) == names.end() && file.text.find(code) != std::string::npos &&
        codeOf(file.text).find(code) != std::string::npos) {
      problems.push_back(sentence({file.path, " has ", code, ", which belongs elsewhere"}));
    }
  }
  return problems;
}

Problems strayLinesOf(const std::string& path, std::string_view text) {
  constexpr std::size_t kLongestLine = 120;
  constexpr std::size_t kLevel = 2;
  Problems problems;
  std::size_t number = 0;
  std::size_t before = 0;
  for (const std::string& line : linesOf(text)) {
    ++number;
    if (line.empty()) {
      continue;
    }
    const std::size_t indentation = std::min(line.find_first_not_of(' '), line.size());
    const bool isStray = line.size() > kLongestLine || indentation % kLevel != 0 || indentation > before + kLevel ||
                         line.back() == ' ' || line.find('\t') != std::string::npos;
    if (isStray) {
      problems.push_back(sentence({path, ":", std::to_string(number), " is not laid out like the others"}));
    }
    before = indentation;
  }
  return problems;
}

}  // namespace architecture
