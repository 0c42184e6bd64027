#include "records/queue.h"

#include "base/raise.h"

Queue::Queue() = default;

Queue::~Queue() { removeAll(); }

void Queue::insert(CORBA::ServerRequest* request, CORBA::Object* target) {
  const zrsv::MutexLock lock(queue_mutex);
  if (tail == -1) throw CORBA::IMP_LIMIT(MINOR_QUEUE_FULL);
  CORBA::Object_var target_copy = CORBA::Object::_duplicate(target);
  // A request object is a view of the ORB core's record: its duplicate is another view of the same one.
  CORBA::ServerRequest* request_copy = request ? CORBA::ServerRequest::_narrow(request) : nullptr;
  if (request_copy) request_copy->set_ref(request->get_ref());
  data[tail] = {request_copy, target_copy._retn()};
  if (head == -1) head = tail;
  tail = (tail + 1) % size;
  if (tail == head) tail = -1;
}

void Queue::get(CORBA::ServerRequest*& request, CORBA::Object*& target) {
  const zrsv::MutexLock lock(queue_mutex);
  if (head == -1) throw CORBA::BAD_PARAM(MINOR_BAD_PARAM);
  Request& entry = data[head];
  request = std::exchange(entry.serverRequest_ptr, nullptr);
  target = std::exchange(entry.target, nullptr);
  if (tail == -1) tail = head;
  head = (head + 1) % size;
  if (head == tail) head = -1;
}

void Queue::removeAll() {
  const zrsv::MutexLock lock(queue_mutex);
  for (Request& entry : data) {
    CORBA::release(std::exchange(entry.serverRequest_ptr, nullptr));
    CORBA::release(std::exchange(entry.target, nullptr));
  }
  head = -1;
  tail = 0;
}

unsigned char Queue::isEmpty() {
  const zrsv::MutexLock lock(queue_mutex);
  return head == -1;
}
