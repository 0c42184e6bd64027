// A fixed ring of held requests.
#pragma once

#include "poa.h"
#include "zrsv/thread_safety.h"

/// First in, first out; 1024 entries. Any thread.
class Queue {
 public:
  struct Request {
    CORBA::ServerRequest* serverRequest_ptr = nullptr;
    CORBA::Object* target = nullptr;
  };
  static constexpr int SIZE = 1024;

  Queue();
  ~Queue();
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;
  /// Keeps duplicates of both. IMP_LIMIT (0x4B510305) when full.
  void insert(CORBA::ServerRequest* request, CORBA::Object* target);
  /// Hands out the oldest entry's duplicates, which the caller owns. BAD_PARAM (0x4B510007) when empty.
  void get(CORBA::ServerRequest*& request, CORBA::Object*& target);
  /// Drops and releases all entries.
  void removeAll();
  unsigned char isEmpty();

 private:
  zrsv::Mutex queue_mutex;
  int head ZR_GUARDED_BY(queue_mutex) = -1;  // oldest entry; -1: empty
  int tail ZR_GUARDED_BY(queue_mutex) = 0;   // where the next goes; -1: full
  int size = SIZE;
  Request data[SIZE] ZR_GUARDED_BY(queue_mutex);
};
