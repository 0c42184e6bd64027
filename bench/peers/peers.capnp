@0xd3c1f0b28a7e4a91;
using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("peers_capnp");

interface Echo {
  add @0 (a :Int32, b :Int32) -> (sum :Int32);
  echo @1 (data :Data) -> (data :Data);
  at @2 (number :UInt32) -> (object :Echo);
}
