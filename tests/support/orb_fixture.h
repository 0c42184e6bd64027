// The ORB of a test program and its root POA.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "poa.h"

/// Handle of the process's ORB, made on first use and destroyed when the test program ends.
void* test_orb();
/// The root POA, resolved on first use.
PortableServer::POA* test_root_poa();

/// A name that no other call in this process gives.
std::string unique_name(const std::string& stem);

/// Tests that work below the root POA, each in a POA of its own.
class AdapterTest : public testing::Test {
 protected:
  AdapterTest();
  void TearDown() override;

  PortableServer::POA* const root;
  PortableServer::POA_var top;  // a fresh child of the root POA; destroyed after the test
};
