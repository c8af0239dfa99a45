// What tests of the stand-in include: all of it, what puts a test between it and the host, and what such tests use.
#pragma once

#include "ChildProcess.h"
#include "Descriptors.h"
#include "HostFaults.h"
#include "HostVariable.h"
#include "KernelIdentity.h"
#include "OpenHandle.h"
#include "OwnImpersonation.h"
#include "TestDrive.h"

#include <Brindle/Vok/PlatformHost.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <list>
#include <random>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <thread>
#include <vector>
