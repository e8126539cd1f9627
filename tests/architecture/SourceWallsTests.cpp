#include <gtest/gtest.h>

#include <string>

#include "tests/architecture/SourceWalls.h"

namespace {

using architecture::House;
using architecture::Problems;

const Problems kNone;

House houseWith(const std::string& text) { return {{{"general/ipc/Door.cpp", text, {}}}, {}, {}}; }

Problems callsIn(const std::string& text) {
  return architecture::callsOf(houseWith(text), {{"system", "a task"}, {"remove_all", "removeItem"}});
}

TEST(SourceWalls, NameACallThatIsBannedAndWhatReplacesIt) {
  const Problems found = {"general/ipc/Door.cpp calls system: use a task"};
  EXPECT_EQ(callsIn("int a = system(\"ls\");"), found);
  EXPECT_EQ(callsIn("int a = ::system(\"ls\");"), found);
  EXPECT_EQ(callsIn("int a = std::system(\"ls\");"), found);
  EXPECT_EQ(callsIn("std::filesystem::remove_all(path);"),
            Problems{"general/ipc/Door.cpp calls remove_all: use removeItem"});
}

TEST(SourceWalls, LetOtherThingsOfThatNameBe) {
  EXPECT_EQ(
      callsIn("machine.system(); machine->system(); Machine::system(); filesystem(1); systems(1); int system = 1;"),
      kNone);
}

TEST(SourceWalls, DoNotReadCommentsAndLiterals) {
  EXPECT_EQ(callsIn("// system(1)\n/* system(\n2) */ a(\"system(3)\", R\"x(system(4)\")x\");\n"), kNone);
  EXPECT_EQ(architecture::codeOf("a = 1'000; // b\nc = 'd' + \"\\\"e\";"), "a = 1'000;     \nc =     +      ;");
}

TEST(SourceWalls, GoOnReadingAfterALiteral) {
  EXPECT_EQ(callsIn("a('\"'); system(1);").size(), 1U);
  EXPECT_EQ(callsIn("a(\"//\"); system(1);").size(), 1U);
  EXPECT_EQ(callsIn("a(1'000); system(1);").size(), 1U);
}

TEST(SourceWalls, NameAFileThatIsTooLong) {
  EXPECT_EQ(architecture::filesLongerThan(houseWith("a\nb\nc\n"), 3), kNone);
  EXPECT_EQ(architecture::filesLongerThan(houseWith("a\nb\nc\nd\n"), 3),
            Problems{"general/ipc/Door.cpp has 4 lines, of 3"});
}

TEST(SourceWalls, NameAFunctionThatIsTooLong) {
  const std::string within =
      "namespace a {\n\nclass B {\n  int c();\n  int d() {\n    return 1;\n  }\n};\n\n"
      "int B::c(int e,\n         int f) {\n  if (e) {\n    return f;\n  }\n  return 0;\n}\n\n}\n";
  EXPECT_EQ(architecture::functionsLongerThan(houseWith(within), 7), kNone);
  EXPECT_EQ(architecture::functionsLongerThan(houseWith(within), 6),
            Problems{"general/ipc/Door.cpp:10 begins a function of 7 lines, of 6"});
  EXPECT_EQ(architecture::functionsLongerThan(houseWith(within), 2),
            (Problems{"general/ipc/Door.cpp:5 begins a function of 3 lines, of 2",
                      "general/ipc/Door.cpp:10 begins a function of 7 lines, of 2"}));
}

TEST(SourceWalls, NameASourceThatAsksWhichSystemThisIs) {
  EXPECT_EQ(architecture::systemQuestions(houseWith("#if 1\n// __linux__\n#endif\n")), kNone);
  EXPECT_EQ(architecture::systemQuestions(houseWith("#ifdef __linux__\n#endif\n")),
            Problems{"general/ipc/Door.cpp asks for __linux__: give each system a source of its own"});
}

TEST(SourceWalls, NameCodeThatStandsInOtherFilesThanItShould) {
  EXPECT_EQ(architecture::codeOutside(houseWith("a = entry[kPath];"), "entry[k", {"Door"}), kNone);
  EXPECT_EQ(architecture::codeOutside(houseWith("// entry[kPath]\n"), "entry[k", {}), kNone);
  EXPECT_EQ(architecture::codeOutside(houseWith("a = entry[kPath];"), "entry[k", {"Gate"}),
            Problems{"general/ipc/Door.cpp has entry[k, which belongs elsewhere"});
}

TEST(SourceWalls, NameALineOfABuildFileThatIsLaidOutInAnotherWay) {
  EXPECT_EQ(architecture::strayLinesOf("a", "b(c\n  d\n    e\n\n    f\n)\n"), kNone);
  EXPECT_EQ(architecture::strayLinesOf("a", "b(c\n    d)\n"), Problems{"a:2 is not laid out like the others"});
  EXPECT_EQ(architecture::strayLinesOf("a", "b(c\n d)\n").size(), 1U);
  EXPECT_EQ(architecture::strayLinesOf("a", "b(c) \n").size(), 1U);
  EXPECT_EQ(architecture::strayLinesOf("a", "b(\tc)\n").size(), 1U);
  EXPECT_EQ(architecture::strayLinesOf("a", std::string(120, '#')), kNone);
  EXPECT_EQ(architecture::strayLinesOf("a", std::string(121, '#')).size(), 1U);
}

TEST(SourceWalls, HaveAReplacementForEveryBannedCall) {
  for (const architecture::BannedCall& call : architecture::bannedCalls()) {
    EXPECT_FALSE(call.instead.empty()) << call.name;
  }
  EXPECT_GT(architecture::bannedCalls().size(), 10U);
}

}  // namespace
