// The command line to the daemon: one request, or one picture of the screen, per run.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/client.h"
#include "tools/options.h"
#include "tools/requests.h"
#ifdef OSD_SOFT_SCREEN
#include "tools/screenshot.h"
#endif

namespace {

constexpr const char* kExamples = R"(Examples:
  osdctl init                                          set up output 0, 1920x1080
  osdctl text "Hello"                                  show a text for 10 seconds
  osdctl text "On air" --id 1.2 --at top-right --x 800 --y 600 --size 64 \
      --colour '#FFFFFF00' --background black --forever
  osdctl hide --id 1.2
  osdctl image logo.png --at 14000,400                 show a picture until it is hidden
  osdctl screenshot screen.png --backdrop checker      the software screen as it is now
  osdctl COMMAND --help                                more examples

An acknowledged request is well formed and accepted; whether it could be drawn is in the daemon's
log. Speak as another peer (--from) while the process "Test" runs.

Exit status: 0 acknowledged, 1 refused by the daemon, 2 no answer in time, 3 bad usage,
4 the peer's port is taken, 5 this machine failed (a socket, a file, nothing shown on the screen).)";

struct T_Screenshot {
  std::string m_strFile;  // empty: none asked for
  std::string m_strBackdrop = "black";
  std::string m_strRoot;
};

std::string PeerNames() {
  std::string strNames;
  for (const T_Peer& peer : kPeers)
    if (peer.HasSlot() && peer.m_u16Port != kDaemonPort)
      strNames.append(strNames.empty() ? "" : ", ").append(peer.m_pName);
  return strNames;
}

const T_Peer* PeerOf(const std::string& i_strName) {
  const auto refuse = [&i_strName](const char* i_pWhy) {
    throw CLI::ValidationError(
        "--from takes one of " + PeerNames() + ", not \"" + i_strName + "\"" + i_pWhy,
        CLI::ExitCodes::ValidationError);
  };
  const auto* pPeer =
      std::find_if(std::begin(kPeers), std::end(kPeers),
                   [&i_strName](const T_Peer& i_peer) { return i_strName == i_peer.m_pName; });
  if (pPeer == std::end(kPeers)) refuse("");
  if (pPeer->m_u16Port == kDaemonPort) refuse(": that is the daemon itself");
  if (!pPeer->HasSlot())
    refuse(": the daemon keeps no sequence number for it and refuses what it sends");
  return pPeer;
}

void AddGlobals(CLI::App& io_app, T_Run& io_run) {
  io_app.description(
      "Asks the on-screen-display daemon of this machine to show, hide and delete texts and pictures.");
  io_app.footer(kExamples);
  io_app.set_version_flag("--version", OSD_VERSION);
  io_app
      .add_option_function<std::string>(
          "--from", [&io_run](const std::string& i_strName) { io_run.m_pPeer = PeerOf(i_strName); },
          Wrapped("the peer to speak as, from its UDP port; Test when not given; one of " +
                  PeerNames()))
      ->type_name("PEER");
  io_app
      .add_option("--timeout", io_run.m_s64TimeoutMs,
                  "how long to wait for the answer, 1000 when not given")
      ->type_name("MS")
      ->check(CLI::Range(1, 600000));
  io_app.add_flag("--quiet", io_run.m_bQuiet, "say nothing about success");
  io_app.add_flag("--json", io_run.m_bJson, "say everything as one JSON object on standard output");
  io_app.require_subcommand(1);
  io_app.fallthrough();
}

void AddScreenshot(CLI::App& io_app, T_Run& io_run, T_Screenshot& io_shot) {
  CLI::App* pCommand = AddCommand(
      io_app, "screenshot", "Write what the software screen shows as a PNG picture", R"(Examples:
  osdctl screenshot screen.png
  osdctl screenshot screen.png --backdrop checker      see what is transparent
  osdctl screenshot screen.png --root /tmp/osd         the screen of the daemon started with OSD_ROOT=/tmp/osd

The layers are read from their files; the daemon is not asked.)");
  pCommand->add_option("file", io_shot.m_strFile, "the picture to write")
      ->type_name("FILE.png")
      ->required();
  pCommand
      ->add_option("--backdrop", io_shot.m_strBackdrop,
                   "what is behind the layers: black (when not given), grey or checker")
      ->type_name("NAME")
      ->check(CLI::IsMember({"black", "grey", "checker"}));
  pCommand
      ->add_option(
          "--root", io_shot.m_strRoot,
          "the device root; when not given the one that OSD_ROOT names, else the\nfolder device of the build")
      ->type_name("DIR");
  pCommand->callback([&io_run, &io_shot] { io_run.m_strWhat = "screenshot " + io_shot.m_strFile; });
}

#ifdef OSD_SOFT_SCREEN
T_Answer Take(const T_Screenshot& i_shot) {
  if (!i_shot.m_strRoot.empty()) ::setenv("OSD_ROOT", i_shot.m_strRoot.c_str(), 1);
  const EBackdrop eBackdrop = i_shot.m_strBackdrop == "grey"      ? EBackdrop::kGrey
                              : i_shot.m_strBackdrop == "checker" ? EBackdrop::kChecker
                                                                  : EBackdrop::kBlack;
  std::string strError;
  if (!TakeScreenshot(i_shot.m_strFile, eBackdrop, &strError))
    return {EOutcome::kFailed, strError, 0};
  return {EOutcome::kDone, "", 0};
}
#else
T_Answer Take(const T_Screenshot&) {
  return {
      EOutcome::kFailed,
      "this osdctl was built for the chip, whose layers are in no file; only a build with OSD_PLATFORM=soft takes screenshots",
      0};
}
#endif

void ReportJson(const T_Run& i_run, const T_Answer& i_answer) {
  static constexpr const char* kNames[] = {"done",      "refused",    "no answer",
                                           "bad usage", "port taken", "failed"};
  const auto exit = static_cast<SInt32>(i_answer.m_eOutcome);
  nlohmann::ordered_json object = {
      {"outcome", kNames[exit]}, {"exit", exit}, {"request", i_run.m_strWhat}};
  if (!i_run.m_vecRequest.empty()) {
    object["from"] = i_run.m_pPeer->m_pName;
    object["milliseconds"] = i_answer.m_f64Millis;
  }
  if (!i_answer.m_strWords.empty()) object["message"] = i_answer.m_strWords;
  // A file name or a mistyped option may hold any bytes.
  std::puts(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}

SInt32 Report(const T_Run& i_run, const T_Answer& i_answer) {
  if (i_run.m_bJson) {
    ReportJson(i_run, i_answer);
  } else if (i_answer.m_eOutcome != EOutcome::kDone) {
    const std::string strWhat = i_run.m_strWhat.empty() ? "" : i_run.m_strWhat + ": ";
    std::fprintf(stderr, "osdctl: %s%s\n", strWhat.c_str(), i_answer.m_strWords.c_str());
  } else if (!i_run.m_bQuiet && i_run.m_vecRequest.empty()) {
    std::printf("written: %s\n", i_run.m_strWhat.c_str());
  } else if (!i_run.m_bQuiet) {
    std::printf("acknowledged after %.1f ms: %s\n", i_answer.m_f64Millis, i_run.m_strWhat.c_str());
  }
  return static_cast<SInt32>(i_answer.m_eOutcome);
}

std::string UsageWords(const CLI::App& i_app, const CLI::ParseError& i_error) {
  const auto chosen = i_app.get_subcommands();
  if (!chosen.empty())
    return std::string(i_error.what()) + "; see osdctl " + chosen.front()->get_name() + " --help";
  if (i_error.get_name() != "RequiredError")
    return std::string(i_error.what()) + "; see osdctl --help";
  std::string strCommands;
  for (const CLI::App* pCommand : i_app.get_subcommands(nullptr))
    strCommands += " " + pCommand->get_name();
  return "name a command, one of" + strCommands + "; see osdctl --help";
}

}  // namespace

int main(int i_argc, char** i_argv) {
  T_Run run;
  T_Screenshot shot;
  CLI::App app("", "osdctl");
  AddGlobals(app, run);
  AddRequests(app, run);
  AddScreenshot(app, run, shot);
  // Looked for before the parse, which may fail before it comes to the flag.
  run.m_bJson = std::count(i_argv, i_argv + i_argc, std::string_view("--json")) != 0;
  try {
    app.parse(i_argc, i_argv);
  } catch (const CLI::Success& wish) {
    return app.exit(wish);
  } catch (const CLI::ParseError& error) {
    return Report(run, {EOutcome::kBadUsage, UsageWords(app, error), 0});
  }
  if (run.m_vecRequest.empty()) return Report(run, Take(shot));
  return Report(run,
                Ask(*run.m_pPeer, run.m_vecRequest, std::chrono::milliseconds(run.m_s64TimeoutMs)));
}
