// What most tests include, compiled once for all of them.
#pragma once

#include "pvzan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <vector>
