// The one table of the settings in "anomaly_config.conf": their names, permitted values, readers
// and meaning. Every reader refers to its setting here. The sample file, the manual page and
// docs/settings.md are printed from it (settings_documents.h).
#pragma once

#include <climits>
#include <span>
#include <stdexcept>
#include <string_view>

namespace corvane {

enum class SettingType {
  kFlag,     // 0 or 1
  kInteger,  // a whole number within bounds
  kPath,
  kUrl,
  kAddress,
  kAddresses,
  kCommand,
  kHours,  // of the day
};

struct SettingsSection {
  const char* name;
  const char* about;      // sentences about all of its settings; "" for none
  bool in_configuration;  // whether Configuration itself gives the defaults, or the reader does
};

struct Setting {
  const SettingsSection* section;
  const char* key;
  SettingType type;
  const char* default_value;
  int least = 0;  // bounds of flags and integers, both included
  int most = 0;
  const char* unit = "";  // of an integer; the form of a text
  const char* readers;    // who reads it, and when
  const char* meaning;    // one sentence
  const char* note = "";  // sentences: how the service reads it, if not by type and bounds
};

namespace setting_table {

inline constexpr SettingsSection kFunctionality{
    "ANOMALY_DETECTION_FUNCTIONALITY",
    "cvanomalymgmt uses the number that a value begins with. A value without a number counts as 0, "
    "an empty value as the default. It accepts only 0 and 1: with any other number it does not "
    "start, and while it is running the last valid flags stay in force.",
    true};
inline constexpr SettingsSection kGather{"DATA_GATHER_SETTINGS", "", true};
inline constexpr SettingsSection kDatabase{"DATABASE_SETTINGS", "", true};
inline constexpr SettingsSection kSensitivity{"ANOMALY_DETECTION_SENSITIVITY", "", true};
inline constexpr SettingsSection kModel{"ANOMALY_MODEL_SETTINGS", "", true};
inline constexpr SettingsSection kHealing{"HEALING_SETTINGS", "", false};
inline constexpr SettingsSection kAlerts{
    "ALERT_SETTINGS",
    "How cvanomalyalert notifies people. The web service of the master server is always notified. "
    "An empty value counts as the default. A file with a secret must belong to the service account "
    "and be readable by it alone.",
    false};

inline constexpr char kFlagReaders[] =
    "cvanomalymgmt every second, cvanomalyheal and cvanomalyctl when they are called";
inline constexpr char kDetectionReaders[] =
    "cvanomalydetect when the file changes, cvanomalyctl when it is called";
inline constexpr char kAlertReaders[] = "cvanomalyalert when the file changes";
inline constexpr char kSeverity[] = "(1 warning, 2 major, 3 critical)";

// In the order of the documents. The settings of a section are adjacent.
inline constexpr Setting kSettings[] = {
    {.section = &kFunctionality,
     .key = "DISABLE_ANOMALY_DETECTION",
     .type = SettingType::kFlag,
     .default_value = "0",
     .most = 1,
     .readers = kFlagReaders,
     .meaning = "1 ends the service and its companions, 0 enables them."},
    {.section = &kFunctionality,
     .key = "DISABLE_DETECTION_SERVICE",
     .type = SettingType::kFlag,
     .default_value = "1",
     .most = 1,
     .readers = kFlagReaders,
     .meaning = "0 runs cvanomalydetect, which looks for anomalies; with 1, new records join the "
                "history without being judged."},
    {.section = &kFunctionality,
     .key = "DISABLE_ALERT_SERVICE",
     .type = SettingType::kFlag,
     .default_value = "1",
     .most = 1,
     .readers = kFlagReaders,
     .meaning =
         "0 runs cvanomalyalert, so that people are notified of anomalies; with 1, nobody is "
         "notified."},
    {.section = &kGather,
     .key = "LIVE_DATA_GATHER_FREQUENCY_IN_MIN",
     .type = SettingType::kInteger,
     .default_value = "15",
     .least = 15,
     .most = INT_MAX / 60,
     .unit = "minutes",
     .readers = "cvanomalymgmt at its start and after each gather, cvanomalyheal and cvanomalyctl "
                "when they are called",
     .meaning = "The pause between the end of one gather and the start of the next.",
     .note = "cvanomalymgmt uses the number that the value begins with. A number below 15, a value "
             "without a number and an empty value count as 15. A number above 35791394 is "
             "not rejected; do not use one."},
    {.section = &kDatabase,
     .key = "PURGE_DATA_INTERVAL_IN_MONTHS",
     .type = SettingType::kInteger,
     .default_value = "12",
     .least = 0,
     .most = 12,
     .unit = "months of 30 days",
     .readers = "cvanomalymgmt at its start, cvanomalydetect when the file changes, cvanomalyheal "
                "and cvanomalyctl "
                "when they are called",
     .meaning = "How long records are kept.",
     .note =
         "cvanomalymgmt uses the number that the value begins with, and so do the others. Beware: "
         "a value without a number counts as 0, and with 0 each purge deletes all records "
         "except false positives. "
         "A number above 12 and an empty value count as 12. cvanomalydetect logs a warning "
         "unless the value is a whole number within the bounds."},
    {.section = &kSensitivity,
     .key = "SENSITIVITY_PERCENTAGE",
     .type = SettingType::kInteger,
     .default_value = "0",
     .least = -100,
     .most = 100,
     .unit = "percent",
     .readers = kDetectionReaders,
     .meaning = "How sensitive the detection is: 100 halves the deviation that counts as an "
                "anomaly, -100 doubles it."},
    {.section = &kModel,
     .key = "MIN_OBSERVATIONS_FOR_TRAINING",
     .type = SettingType::kInteger,
     .default_value = "30",
     .least = 2,
     .most = 1000000,
     .unit = "records",
     .readers = kDetectionReaders,
     .meaning = "How many records a stream needs in its history before its backups are judged."},
    {.section = &kModel,
     .key = "DAYS_FOR_LAST_BACKUP_TO_IGNORE_ANOMALY",
     .type = SettingType::kInteger,
     .default_value = "365",
     .least = 1,
     .most = 100000,
     .unit = "days",
     .readers = kDetectionReaders,
     .meaning = "The longest pause between two backups of a stream; after a longer one the stream "
                "learns again."},
    {.section = &kModel,
     .key = "MAX_OBSERVATIONS_FOR_TRAINING",
     .type = SettingType::kInteger,
     .default_value = "3000",
     .least = 2,
     .most = 1000000,
     .unit = "records",
     .readers = kDetectionReaders,
     .meaning = "How many records of a stream's history are used at most, newest first."},
    {.section = &kHealing,
     .key = "HEAL",
     .type = SettingType::kFlag,
     .default_value = "1",
     .most = 1,
     .readers = "cvanomalyheal when it is called",
     .meaning = "1 gathers missed backups and starts dead programs again; 0 only reports them."},
    {.section = &kHealing,
     .key = "HEARTBEAT_URL",
     .type = SettingType::kUrl,
     .default_value = "",
     .unit = "URL, https except on this machine",
     .readers = "cvanomalyctl check --heartbeat when it is called",
     .meaning = "The address that cvanomaly-heartbeat.timer has called every minute: as it stands "
                "when the status is OK or WARNING, otherwise with /fail added; empty: none."},
    {.section = &kAlerts,
     .key = "SYSLOG",
     .type = SettingType::kFlag,
     .default_value = "0",
     .most = 1,
     .readers = kAlertReaders,
     .meaning = "1 writes alerts to the journal of this machine, with fields (journalctl "
                "ANOMALY_CLIENT=web01); 0 does not."},
    {.section = &kAlerts,
     .key = "SYSLOG_SOCKET",
     .type = SettingType::kPath,
     .default_value = "/run/systemd/journal/socket",
     .unit = "path",
     .readers = kAlertReaders,
     .meaning = "The journal's socket."},
    {.section = &kAlerts,
     .key = "SYSLOG_MIN_SEVERITY",
     .type = SettingType::kInteger,
     .default_value = "1",
     .least = 1,
     .most = 3,
     .unit = kSeverity,
     .readers = kAlertReaders,
     .meaning = "The lowest severity of alerts that are written to the journal."},
    {.section = &kAlerts,
     .key = "WEBHOOK_URL",
     .type = SettingType::kUrl,
     .default_value = "",
     .unit = "URL, https except on this machine",
     .readers = kAlertReaders,
     .meaning = "The address that each alert is posted to as a JSON document; empty: none."},
    {.section = &kAlerts,
     .key = "WEBHOOK_SECRET_FILE",
     .type = SettingType::kPath,
     .default_value = "",
     .unit = "path",
     .readers = kAlertReaders,
     .meaning = "The file with the secret that signs the document; empty: not signed."},
    {.section = &kAlerts,
     .key = "WEBHOOK_MIN_SEVERITY",
     .type = SettingType::kInteger,
     .default_value = "1",
     .least = 1,
     .most = 3,
     .unit = kSeverity,
     .readers = kAlertReaders,
     .meaning = "The lowest severity of alerts that are posted to the webhook."},
    {.section = &kAlerts,
     .key = "MAIL_TO",
     .type = SettingType::kAddresses,
     .default_value = "",
     .unit = "addresses, separated by commas",
     .readers = kAlertReaders,
     .meaning = "The recipients of mail; empty: nobody."},
    {.section = &kAlerts,
     .key = "MAIL_FROM",
     .type = SettingType::kAddress,
     .default_value = "",
     .unit = "one address",
     .readers = kAlertReaders,
     .meaning = "The sender of the mail."},
    {.section = &kAlerts,
     .key = "SMTP_URL",
     .type = SettingType::kUrl,
     .default_value = "smtp://localhost:25",
     .unit = "URL, smtp or smtps",
     .readers = kAlertReaders,
     .meaning = "The mail server; it must offer TLS unless it is on this machine."},
    {.section = &kAlerts,
     .key = "SMTP_CREDENTIALS_FILE",
     .type = SettingType::kPath,
     .default_value = "",
     .unit = "path",
     .readers = kAlertReaders,
     .meaning = "The file with one line, user:password, for the mail server; empty: no login."},
    {.section = &kAlerts,
     .key = "MAIL_MIN_SEVERITY",
     .type = SettingType::kInteger,
     .default_value = "1",
     .least = 1,
     .most = 3,
     .unit = kSeverity,
     .readers = kAlertReaders,
     .meaning = "The lowest severity of alerts that are mailed."},
    {.section = &kAlerts,
     .key = "COMMAND",
     .type = SettingType::kCommand,
     .default_value = "",
     .unit = "full path and arguments, separated by spaces",
     .readers = kAlertReaders,
     .meaning = "A program that reads the JSON document from its standard input and ends with "
                "status 0 when the alert is delivered; it is run without a shell; empty: none."},
    {.section = &kAlerts,
     .key = "COMMAND_TIMEOUT_IN_SEC",
     .type = SettingType::kInteger,
     .default_value = "60",
     .least = 1,
     .most = 3600,
     .unit = "seconds",
     .readers = kAlertReaders,
     .meaning = "The time after which the program is killed, with everything that it started."},
    {.section = &kAlerts,
     .key = "COMMAND_MIN_SEVERITY",
     .type = SettingType::kInteger,
     .default_value = "1",
     .least = 1,
     .most = 3,
     .unit = kSeverity,
     .readers = kAlertReaders,
     .meaning = "The lowest severity of alerts that are passed to the program."},
    {.section = &kAlerts,
     .key = "CA_FILE",
     .type = SettingType::kPath,
     .default_value = "",
     .unit = "path of a file in PEM form",
     .readers = "cvanomalyalert when the file changes, cvanomalyctl check --heartbeat when it is "
                "called",
     .meaning = "The certificate authorities for the webhook, the mail server and the heartbeat; "
                "empty: those of the system."},
    {.section = &kAlerts,
     .key = "QUIET_HOURS",
     .type = SettingType::kHours,
     .default_value = "",
     .unit = "hours in local time, as in 22:00-07:00",
     .readers = kAlertReaders,
     .meaning =
         "Warnings (severity 1) that arise in these hours are held back until the hours end; "
         "empty: no quiet hours."},
    {.section = &kAlerts,
     .key = "ALERT_STORM_LIMIT",
     .type = SettingType::kInteger,
     .default_value = "10",
     .least = 1,
     .most = 1000,
     .unit = "messages",
     .readers = kAlertReaders,
     .meaning = "How many messages of a kind are sent one by one within ALERT_STORM_MINUTES; any "
                "more are combined into one summary."},
    {.section = &kAlerts,
     .key = "ALERT_STORM_MINUTES",
     .type = SettingType::kInteger,
     .default_value = "15",
     .least = 1,
     .most = 1440,
     .unit = "minutes",
     .readers = kAlertReaders,
     .meaning = "The period of ALERT_STORM_LIMIT."},
};

// A key that is not in the table is a compile error.
constexpr const Setting& row(std::string_view key) {
  for (const Setting& setting : kSettings) {
    if (setting.key == key) return setting;
  }
  throw std::logic_error("no such setting");
}

}  // namespace setting_table

constexpr std::span<const Setting> all_settings() { return setting_table::kSettings; }

// The default of a flag or an integer.
constexpr int default_number(const Setting& setting) {
  const char* text = setting.default_value;
  const bool is_negative = *text == '-';
  int number = 0;
  for (text += is_negative ? 1 : 0; *text != '\0'; ++text) number = 10 * number + (*text - '0');
  return is_negative ? -number : number;
}

// The names by which readers refer to a setting; each is the row itself.
namespace setting {

using setting_table::row;

inline constexpr const Setting& kDisableAnomalyDetection = row("DISABLE_ANOMALY_DETECTION");
inline constexpr const Setting& kDisableDetectionService = row("DISABLE_DETECTION_SERVICE");
inline constexpr const Setting& kDisableAlertService = row("DISABLE_ALERT_SERVICE");
inline constexpr const Setting& kGatherFrequency = row("LIVE_DATA_GATHER_FREQUENCY_IN_MIN");
inline constexpr const Setting& kPurgeInterval = row("PURGE_DATA_INTERVAL_IN_MONTHS");
inline constexpr const Setting& kSensitivity = row("SENSITIVITY_PERCENTAGE");
inline constexpr const Setting& kMinObservations = row("MIN_OBSERVATIONS_FOR_TRAINING");
inline constexpr const Setting& kDaysToIgnore = row("DAYS_FOR_LAST_BACKUP_TO_IGNORE_ANOMALY");
inline constexpr const Setting& kMaxObservations = row("MAX_OBSERVATIONS_FOR_TRAINING");
inline constexpr const Setting& kHeal = row("HEAL");
inline constexpr const Setting& kHeartbeatUrl = row("HEARTBEAT_URL");
inline constexpr const Setting& kSyslog = row("SYSLOG");
inline constexpr const Setting& kSyslogSocket = row("SYSLOG_SOCKET");
inline constexpr const Setting& kSyslogMinSeverity = row("SYSLOG_MIN_SEVERITY");
inline constexpr const Setting& kWebhookUrl = row("WEBHOOK_URL");
inline constexpr const Setting& kWebhookSecretFile = row("WEBHOOK_SECRET_FILE");
inline constexpr const Setting& kWebhookMinSeverity = row("WEBHOOK_MIN_SEVERITY");
inline constexpr const Setting& kMailTo = row("MAIL_TO");
inline constexpr const Setting& kMailFrom = row("MAIL_FROM");
inline constexpr const Setting& kSmtpUrl = row("SMTP_URL");
inline constexpr const Setting& kSmtpCredentialsFile = row("SMTP_CREDENTIALS_FILE");
inline constexpr const Setting& kMailMinSeverity = row("MAIL_MIN_SEVERITY");
inline constexpr const Setting& kCommand = row("COMMAND");
inline constexpr const Setting& kCommandTimeout = row("COMMAND_TIMEOUT_IN_SEC");
inline constexpr const Setting& kCommandMinSeverity = row("COMMAND_MIN_SEVERITY");
inline constexpr const Setting& kCaFile = row("CA_FILE");
inline constexpr const Setting& kQuietHours = row("QUIET_HOURS");
inline constexpr const Setting& kStormLimit = row("ALERT_STORM_LIMIT");
inline constexpr const Setting& kStormMinutes = row("ALERT_STORM_MINUTES");

}  // namespace setting

}  // namespace corvane
