// The three switches of the configuration file that say what is to run.
#pragma once

// Reads the flags of section "ANOMALY_DETECTION_FUNCTIONALITY", afresh; each is 1 for "disabled", 0
// otherwise, and not checked here. What is configured empty gets a fallback (logged): the service
// itself runs, its companions do not. Returns 0.
int ReadConfigStateFlags(int& disableAnomalyDetection, int& disableDetectionService,
                         int& disableAlertService);

// 1 when all three flags are 0 or 1, else 0, every invalid one logged.
int ValidateConfigStateFlags(int disableAnomalyDetection, int disableDetectionService,
                             int disableAlertService);
