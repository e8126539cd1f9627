#include <gtest/gtest.h>

#include "frontend/JsonPresenter.h"
#include "tests/unit/frontend/PrintedRun.h"

namespace frontend {
namespace {

using namespace deployer;

TEST(JsonPresenter, PrintsOneObjectPerEvent) {
  Printed printed;
  JsonPresenter presenter(printed.toOutput());
  presenter.begin(someFacts());
  presenter.unreachable();
  presenter.watching(7);
  presenter.stateChanged(QVNInstallerStateInstalling);
  presenter.progressChanged(40);
  presenter.cancelAsked();
  presenter.orderRefused("Not you.");
  presenter.end(kFailure, someFacts());
  EXPECT_EQ(printed.output,
            "{\"event\": \"started\", \"process\": 7, \"log\": \"/l\"}\n"
            "{\"event\": \"unreachable\"}\n"
            "{\"event\": \"watching\", \"process\": 7}\n"
            "{\"event\": \"state\", \"state\": 15, \"text\": \"Installing\"}\n"
            "{\"event\": \"progress\", \"percent\": 40}\n"
            "{\"event\": \"cancelling\"}\n"
            "{\"event\": \"notPermitted\", \"text\": \"Not you.\"}\n"
            "{\"event\": \"ended\", \"outcome\": \"finished\", \"state\": 1, \"text\": \"Not well.\", \"exitCode\": 1, "
            "\"process\": 7, \"log\": \"/l\"}\n");
}

TEST(JsonPresenter, PrintsWhatTheCheckFinds) {
  Printed printed;
  JsonPresenter presenter(printed.toOutput());
  presenter.checking(45);
  BundleReport fit;
  fit.files = 2;
  fit.bytes = 300;
  fit.warnings = {"a\"b"};
  presenter.checked(fit);
  presenter.refused(someReport());
  EXPECT_EQ(
      printed.output,
      "{\"event\": \"checking\", \"percent\": 45}\n"
      "{\"event\": \"checked\", \"files\": 2, \"bytes\": 300, \"checksums\": false, \"warnings\": [\"a\\u0022b\"]}\n"
      "{\"event\": \"refused\", \"count\": 9, \"problems\": [{\"kind\": \"missing\", \"file\": \"/b/one\", "
      "\"component\": \"Core\", \"text\": \"is missing\", \"expected\": null, \"found\": null}, {\"kind\": "
      "\"checksum\", \"file\": \"/b/t\\u001bwo\", \"component\": \"Core\", \"text\": \"is damaged\", "
      "\"expected\": \"abc\", \"found\": \"def\"}]}\n");
}

TEST(JsonPresenter, PrintsNullForWhatIsNotKnown) {
  Printed printed;
  JsonPresenter presenter(printed.toOutput());
  RunFacts facts;
  facts.purpose = Purpose::Watch;
  presenter.begin(facts);
  presenter.end({"unwatched", std::nullopt, "x", 69}, facts);
  EXPECT_EQ(printed.output,
            "{\"event\": \"connecting\", \"process\": null, \"log\": null}\n"
            "{\"event\": \"ended\", \"outcome\": \"unwatched\", \"state\": null, \"text\": \"x\", \"exitCode\": 69, "
            "\"process\": null, \"log\": null}\n");
}

}  // namespace
}  // namespace frontend
