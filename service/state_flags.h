// The three flags of the configuration file that disable the service and its companions.
#pragma once

// Re-reads the flags of section "ANOMALY_DETECTION_FUNCTIONALITY"; each is 1 for "disabled", 0
// otherwise, and not checked here. An empty flag gets a fallback (logged): the service is enabled,
// its companions are disabled. Returns 0.
int ReadConfigStateFlags(int& disableAnomalyDetection, int& disableDetectionService,
                         int& disableAlertService);

// Returns 1 if all three flags are 0 or 1, else 0; logs every invalid one.
int ValidateConfigStateFlags(int disableAnomalyDetection, int disableDetectionService,
                             int disableAlertService);
