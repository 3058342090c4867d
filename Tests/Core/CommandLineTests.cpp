// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <chrono>
#include <exception>
#include <stdexcept>

#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "Tests/Core/FakeSystem.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests {
namespace {

using namespace std::chrono_literals;
using std::chrono::sys_days;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using Error = CertificateSelectorError;

constexpr Date never = sys_days(9999y / 12 / 31) + 23h + 59min + 59s;

class CommandLine : public testing::Test {
 protected:
  CommandLine() { fakeSystem() = {}; }

  static void add(const std::string& certificate, const std::string& commonName,
                  Date expiresAt = never) {
    fakeSystem().identities.push_back({certificate, valuesNaming(commonName, expiresAt)});
  }

  static void runMain(const std::vector<const char*>& arguments) {
    LumaretMacHelper::main(static_cast<int>(arguments.size()), arguments.data());
  }

  /// The calls of a run, without those that read an identity.
  static Texts callsOf(const Texts& arguments) {
    fakeSystem().calls.clear();
    LumaretMacHelper::run(arguments);
    Texts calls = fakeSystem().calls;
    std::erase_if(calls, [](const std::string& call) {
      return call.starts_with("has") || call.starts_with("copyC");
    });
    return calls;
  }
};

TEST_F(CommandLine, RejectsOtherCommands) {
  for (const Texts& arguments :
       {Texts{}, Texts{""}, Texts{"List"}, Texts{" list"}, Texts{"lis"}, Texts{"help", "list"},
        Texts{"--help"}, Texts{"Activate", "--fingerprint", "5d2a"}, Texts{"activate"},
        Texts{"activate", "5d2a"}, Texts{"activate", "--Fingerprint", "5d2a"},
        Texts{"activate", "--url", "https://a.example", "--fingerprint"},
        Texts{"activate", "--fingerprint", "", "--fingerprint", "5d2a"}}) {
    EXPECT_THROW(LumaretMacHelper::run(arguments), CommandError) << listed(arguments);
    EXPECT_THAT(fakeSystem().calls, IsEmpty());
  }
}

TEST_F(CommandLine, WritesTheUsageAtOnce) {
  const std::string calls =
      "[prepareStandardStreams, error " + std::string(messages::usage) + "\n]";
  EXPECT_EXIT(runMain({}), ExitedWithCode(1), testing::Eq(calls));
  EXPECT_EXIT(runMain({"list"}), ExitedWithCode(1), testing::Eq(calls));  // The program's path.
}

TEST_F(CommandLine, WritesAnyErrorAtOnce) {
  const std::string text("a\0b", 3);
  const auto expectMessage = [](const std::string& message) {
    EXPECT_EXIT(
        runMain({"tool", "list"}), ExitedWithCode(1),
        testing::ResultOf([](const std::string& told) { return told; },
                          "[prepareStandardStreams, copyIdentities, error " + message + "\n]"));
  };
  fakeSystem().fail("copyIdentities", Error::chromeLaunchFailed(text));
  expectMessage(messages::told(messages::chromeLaunchFailed, text));
  fakeSystem().fail("copyIdentities", std::runtime_error("No such device"));
  expectMessage("No such device");
  fakeSystem().fail("copyIdentities", 7);
  expectMessage("Unknown error.");
}

TEST_F(CommandLine, ReturnsAfterASuccess) {
  runMain({"tool", "list"});
  EXPECT_THAT(fakeSystem().calls,
              ElementsAre("prepareStandardStreams", "copyIdentities", "output []", "output \n"));
}

TEST_F(CommandLine, PrintsSortedCompactJSONThenALineFeed) {
  const auto issuer = name({attribute("2.5.4.3", "CA \"1\""), attribute("2.5.4.11", "R/D")});
  const auto subject = name({attribute("2.5.4.10", "Org"), attribute("2.5.4.7", "Málaga")});
  fakeSystem().identities = {{"z", {{subject, issuer, notAfter({never})}}}};
  add("a", "Zoe");
  const std::string expiry = R"({"expiresAt":"9999-12-31T23:59:59Z","id":")";
  const std::string noOthers = R"(,"locality":null,"organization":null,"organizationalUnit":null})";
  EXPECT_THAT(callsOf({"list", "further", "--words"}),
              ElementsAre("copyIdentities",
                          "output [" + expiry + idOf("z") +
                              R"(","issuer":{"commonName":"CA \"1\"","locality":null,)"
                              R"("organization":null,"organizationalUnit":"R/D"},)"
                              R"("subject":{"commonName":null,"locality":"Málaga",)"
                              R"("organization":"Org","organizationalUnit":null}},)" +
                              expiry + idOf("a") + R"(","issuer":{"commonName":null)" + noOthers +
                              R"(,"subject":{"commonName":"Zoe")" + noOthers + "}]",
                          "output \n"));
}

TEST_F(CommandLine, WritesDatesToTheSecondWithLeadingZeros) {
  for (const auto& [date, text] :
       {std::pair(Date(sys_days(2101y / 2 / 3) + 4h + 5min + 6s), "\"2101-02-03T04:05:06Z\""),
        {sys_days(2345y / 11 / 28) + 19h + 37min + 52s, "\"2345-11-28T19:37:52Z\""},
        {sys_days(2096y / 2 / 29) + 999'999us, "\"2096-02-29T00:00:00Z\""},
        {sys_days(12345y / 10 / 20), "\"12345-10-20T00:00:00Z\""}}) {
    fakeSystem().identities.clear();
    add("a", "Ana", date);
    EXPECT_THAT(callsOf({"list"})[1], testing::HasSubstr(text));
  }
}

TEST_F(CommandLine, PrintsNothingWithTextThatIsNotUTF8) {
  add("a", "An\xff");
  EXPECT_THROW(LumaretMacHelper::run({"list"}), std::exception);
  EXPECT_EQ(fakeSystem().calls.back(), "copyCertificate a");
}

class Activate : public CommandLine {
 protected:
  Activate() {
    add("ana", "Ana");
    add("bea", "Bea");
  }

  static std::optional<Error> errorOf(const std::string& fingerprint, const Texts& further = {}) {
    Texts arguments = {"activate", "--fingerprint", fingerprint};
    arguments.insert(arguments.end(), further.begin(), further.end());
    return selectorErrorOf([&] { (void)callsOf(arguments); });
  }

  /// The calls up to that which opens the window.
  static Texts road() {
    return {"copyIdentities",
            "authorize " + idOf("bea"),
            "readRules",
            R"(writeRules [{"filter":{"SUBJECT":{"CN":"Bea"}},"pattern":"*"}])",
            "synchronize",
            "readBack",
            "isExecutableFile /opt/chrome",
            "isApplicationRunning com.google.Chrome",
            "run and await /opt/chrome [--refresh-platform-policy]"};
  }
};

TEST_F(Activate, AuthorizesThenStoresThenOpens) {
  fakeSystem().isRunning = true;
  Texts calls = road();
  calls.insert(calls.end(), {"run /opt/chrome [--new-window, https://a.example/]",
                             R"(output {"ok":true})", "output \n"});
  for (const Texts& arguments :
       {Texts{"activate", "--fingerprint", idOf("bea"), "--url", "https://a.example/"},
        Texts{"activate", "word", "--url", "https://a.example/", "list", "--fingerprint",
              idOf("bea"), "--url", "b", "--fingerprint", "c"}}) {
    fakeSystem().isWritten = false;
    fakeSystem().rules.clear();
    EXPECT_EQ(callsOf(arguments), calls);
  }
}

TEST_F(Activate, OpensAWindowWithoutAUsableAddress) {
  for (const Texts& further :
       {Texts{}, Texts{"--url"}, Texts{"--url", ""}, Texts{"--url", "a b"}}) {
    EXPECT_EQ(errorOf(idOf("bea"), further), std::nullopt);
    EXPECT_THAT(fakeSystem().calls, testing::Contains("run /opt/chrome [--new-window]"));
    EXPECT_EQ(fakeSystem().calls.back(), "output \n");
  }
}

TEST_F(Activate, RequiresTheExactFingerprint) {
  for (const std::string& fingerprint : {std::string("--url"), " " + idOf("ana"), idOf("carla"),
                                         idOf("bea") + "\n", std::string("62656"), idOf("Bea")}) {
    EXPECT_EQ(errorOf(fingerprint, {"https://a.example/"}), Error::selectedIdentityNotFound());
    EXPECT_EQ(fakeSystem().calls.back(), "copyCertificate bea");
  }
  add("jkl", "Jo");  // Its fingerprint has letters.
  EXPECT_EQ(errorOf("6A6B6C" + std::string(58, '0')), Error::selectedIdentityNotFound());
  EXPECT_EQ(errorOf("6a6b6c" + std::string(58, '0')), std::nullopt);
}

TEST_F(Activate, EndsAtTheFirstFailure) {
  fakeSystem().isRunning = true;
  Texts calls = road();
  calls.emplace_back("run /opt/chrome [--new-window]");
  for (const std::string& call : calls) {
    const FakeSystem before = fakeSystem();
    fakeSystem().fail(call, Error::keychainFailure(-61));
    EXPECT_TRUE(errorOf(idOf("bea"))) << call;
    EXPECT_EQ(fakeSystem().calls.back(), call);
    fakeSystem() = before;
  }
}

}  // namespace
}  // namespace lumaret::tests
