// A message in which every field has a value of its own.
#pragma once

#include "companions/alert/channel/message.h"

namespace corvane::alert {

inline Message some_message() {
  Message message;
  message.alert = "t-1";
  message.kind = Kind::kBegin;
  message.severity = Severity::kMajor;
  message.created = 101;
  message.anomaly_id = "the id";
  message.incident = "the incident";
  message.client = "the client";
  message.policy = "the policy";
  message.schedule = "the schedule";
  message.cause = "the cause";
  message.since = 102;
  message.until = 0;
  message.records = 103;
  message.subject = "the subject";
  message.body = "a line\n";
  message.details = R"({"a":1})";
  return message;
}

}  // namespace corvane::alert
