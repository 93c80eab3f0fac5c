// What the opaque handles of the C interface hold. Each handle of a device keeps its session
// alive, so that a handle released after velk_device_close still finds what it needs to fail
// cleanly or to tear down.
#pragma once

#include <memory>

#include "DeviceSession.h"
#include "velk/DeviceConfiguration.h"
#include "velk/VelkExtractionManager.h"
#include "velk/VelkPermissionExtraction.h"
#include "velk/velk.h"

struct velk_config {
  velk::ingest::DeviceConfiguration configuration;
  bool runMainQueueThread = false;
};

struct velk_device {
  std::shared_ptr<velk::capi::DeviceSession> session;
};

struct velk_manager {
  std::shared_ptr<velk::capi::DeviceSession> session;
  std::unique_ptr<velk::VelkExtractionManager> manager;
};

struct velk_permission_extraction {
  std::shared_ptr<velk::capi::DeviceSession> session;
  std::unique_ptr<velk::VelkPermissionExtraction> extraction;
};
