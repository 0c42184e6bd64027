// Which of the connections to an end point a thread calls over. A thread keeps to its lane, so that its calls arrive in
// the order in which it makes them; threads that call at a time are spread over the lanes there are.
#pragma once

namespace zrsv {

/// The calling thread's lane, from its first call to its end: the one that the fewest threads have, the first of
/// several. Below -ORBClientConnections; 0 when the thread is about to end.
unsigned lane_of_thread();

}  // namespace zrsv
