// What the synthetic signpost stores are made of: the programs that log,
// the signposts they mark with the arguments each carries, the argument
// values (inside and outside the Cirros whitelist, private-looking text) and
// other programs' journal lines. Only the store generator (SignpostStoreDay)
// uses it; the tables are apart so that the generator's files hold its logic.
#pragma once

namespace lumvane::signpost_store {

struct Process {
  uint64_t pid;
  const char* comm;
  const char* exe;
  const char* cmdline;
  unsigned uid;
  const char* unit;  // system unit, or the user's service manager for user programs
};
inline constexpr Process kProcesses[] = {
    {1187, "volumed", "/usr/bin/volumed", "/usr/bin/volumed --watch", 0, "volumed.service"},
    {2210, "gallery", "/opt/Gallery.AppDir/gallery", "/opt/Gallery.AppDir/gallery", 1000,
     "user@1000.service"},
    {2388, "mailbox", "/opt/Mailbox.AppDir/mailbox", "/opt/Mailbox.AppDir/mailbox --background",
     1000, "user@1000.service"},
    {702, "netmond", "/usr/bin/netmond", "/usr/bin/netmond", 0, "netmond.service"},
    {911, "composerd", "/usr/bin/composerd", "/usr/bin/composerd --seat seat0", 1000,
     "user@1000.service"},
    {1120, "indexd", "/usr/bin/indexd", "/usr/bin/indexd --idle-only", 1000, "user@1000.service"},
    {3071, "atlas", "/home/user/.local/bin/atlas", "/home/user/.local/bin/atlas", 1000,
     "user@1000.service"},
};
// Scripts mark signposts through the command; its process is a new one on
// every call, sending on behalf of the script when told its PID.
inline constexpr Process kScript = {
    2950, "nightly-backup",   "/usr/bin/bash", "/bin/bash /home/user/bin/nightly-backup",
    1000, "user@1000.service"};
inline constexpr const char* kCommandExe = "/usr/bin/lumvane-signpost";
inline constexpr int kByCommand = -1;       // the command, on behalf of kScript (OBJECT_PID)
inline constexpr int kByCommandAlone = -2;  // the command without a PID (system scope)

struct SignpostKind {
  const char* subsystem;
  const char* category;
  const char* name;
  const char* scope;
  bool animation;
  int process;  // index into kProcesses, or kByCommand / kByCommandAlone
  // Argument names; nullptr leaves the slot out.
  const char* string1;
  const char* string2;
  const char* number1;
  const char* number2;
  const char* attribute;
  const char* message;
};
inline constexpr SignpostKind kKinds[] = {
    {"com.orvel.storage", "Volume", "MountCheck", "process", false, 0, "Volume", "Mode", "Errors",
     nullptr, nullptr, "volume check"},
    {"com.orvel.gallery", "Rendering", "ThumbnailDecode", "thread", false, 1, "Format", nullptr,
     "Bytes", "Scale", nullptr, "thumbnail decode"},
    {"com.orvel.gallery", "Scrolling", "GridScroll", "process", true, 1, "Source", nullptr, "Items",
     nullptr, nullptr, "grid scroll"},
    {"com.orvel.mailbox", "Sync", "FolderSync", "process", false, 2, "Folder", "Account",
     "Messages", "Delta", "BundleIdOverride", "folder sync"},
    {"com.orvel.network", "Fetch", "RequestLoad", "process", false, 3, "Host", nullptr, "Status",
     "Retries", nullptr, "request load"},
    {"com.orvel.composer", "Animation", "WindowTransition", "system", true, 4, "Kind", nullptr,
     "Layers", nullptr, "Style", "window transition"},
    {"com.orvel.indexer", "Index", "BatchIndex", "thread", false, 5, "Store", nullptr, "Documents",
     "Skipped", nullptr, "batch index"},
    {"com.orvel.launch", "Startup", "FirstWindow", "process", false, 6, "Phase", nullptr, "Frames",
     nullptr, nullptr, "first window"},
    {"com.orvel.storage", "Backup", "Snapshot", "process", false, kByCommand, "Target", nullptr,
     "Files", nullptr, "Tool", "backup snapshot"},
    {"com.orvel.maintenance", "Jobs", "CacheSweep", "system", false, kByCommandAlone, "Volume",
     nullptr, "Freed", nullptr, nullptr, "cache sweep"},
};

// Argument strings: the Cirros whitelist ("Root", "Ext"), their lower-case
// look-alikes, ordinary words and private-looking text.
inline constexpr const char* kWhitelisted[] = {"Root", "Ext"};
inline constexpr const char* kLookAlikes[] = {"root", "ext", "ROOT"};
inline constexpr const char* kOrdinary[] = {"Jpeg",     "Heic", "Inbox", "Archive", "wifi",
                                            "ethernet", "Warm", "Cold",  "Primary"};
inline constexpr const char* kPrivate[] = {
    "alice.m@example.org",  "/home/alice/Documents/taxes-2023.pdf",
    "alice-laptop",         "+1 555 0100",
    "session-7f3a9c21e04b", "Bob Example"};
inline constexpr const char* kAttributeValues[] = {"com.orvel.gallery.widget", "compact", "fade",
                                                   "slide", "x=y"};

struct OtherProgram {
  Process process;
  const char* transport;
  const char* priority;
  const char* messages[3];
};
inline constexpr OtherProgram kOthers[] = {
    {{0, "", "", "", 0, ""},
     "kernel",
     "6",
     {"usb 1-2: new high-speed USB device number 5 using xhci_hcd", "wlp2s0: associated",
      "EXT4-fs (nvme0n1p3): mounted filesystem with ordered data mode"}},
    {{1, "systemd", "/usr/lib/systemd/systemd", "/sbin/init splash", 0, "init.scope"},
     "journal",
     "6",
     {"Starting Rotate log files...", "Finished Cleanup of Temporary Directories.",
      "Started Timer for the daily index refresh."}},
    {{611, "cron", "/usr/sbin/cron", "/usr/sbin/cron -f", 0, "cron.service"},
     "syslog",
     "6",
     {"(root) CMD (test -x /usr/bin/volumed && /usr/bin/volumed --scrub)",
      "pam_unix(cron:session): session opened for user root(uid=0) by (uid=0)",
      "pam_unix(cron:session): session closed for user root"}},
    {{803, "sshd", "/usr/sbin/sshd", "sshd: /usr/sbin/sshd -D", 0, "ssh.service"},
     "syslog",
     "6",
     {"Accepted publickey for user from 192.0.2.10 port 50522 ssh2",
      "Received disconnect from 192.0.2.10 port 50522:11: disconnected by user",
      "Connection closed by 198.51.100.7 port 41100 [preauth]"}},
    {{2210, "gallery", "/opt/Gallery.AppDir/gallery", "/opt/Gallery.AppDir/gallery", 1000,
      "user@1000.service"},
     "stdout",
     "4",
     {"warning: thumbnail cache at 91% of its quota",
      "decoder: falling back to software path\n  at decode_frame (codec.c:211)\n  at worker_run "
      "(pool.c:88)",
      "loaded 412 albums in 230 ms"}},
};
// Another tool's structured entries: signpost-like field names under a
// different message ID, which a reader must pass over.
inline constexpr const char* kForeignMessageId = "5e1fa3b77c0d4e2b9a8f6d3c2b1a0f9e";

}  // namespace lumvane::signpost_store
