// The compiled parts of Asio and Beast, which every other file takes as declarations only.
#include <boost/asio/impl/src.hpp>
#include <boost/beast/src.hpp>
