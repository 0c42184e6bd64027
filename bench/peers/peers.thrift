namespace cpp peers_thrift

service Echo {
  i32 add(1: i32 a, 2: i32 b)
  binary echo(1: binary data)
}
