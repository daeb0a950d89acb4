// An outbox over the state database of an AlertWorld.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "companions/alert/delivery/outbox.h"
#include "tests/support/sql.h"
#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {

class OutboxWorld : public AlertWorld {
 protected:
  Delivery begun(const char* channel, std::int64_t now) {
    const auto delivery = outbox().begin(channel, now);
    EXPECT_TRUE(delivery) << channel << " at " << now - kFirst;
    return delivery.value_or(Delivery{});
  }
  Outbox outbox() { return Outbox(*state_); }
  void sql_state(const char* statement) { test::query(state_->handle(), statement); }
};

}  // namespace corvane::alert
