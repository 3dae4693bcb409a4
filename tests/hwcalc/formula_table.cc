// Computes resource records for a program that checks them.
//
// Reads lines of numbers: the page size in bytes; the process and the disk factor and
// avnumproc, each as the bits of a single-precision number; then numproc, numtcpsock,
// numothersock, numfile, privvmpages, lockedpages, shmpages, numflock, numiptent,
// diskspace, diskinodes and quotaugidlimit. Writes a line for each: the records as
// NAME=BARRIER:LIMIT, or NAME=LIMIT for those of one value, with blanks between them.
#include <bit>
#include <cstdint>
#include <iostream>

#include "hwcalc/formulas.h"

namespace {

bool readBits(float& value) {
  std::uint32_t bits = 0;
  std::cin >> bits;
  value = std::bit_cast<float>(bits);
  return static_cast<bool>(std::cin);
}

}  // namespace

int main() {
  int pageSize = 0;
  while (std::cin >> pageSize) {
    hwcalc::Scales scales;
    QXHWCalc::PhysParams p;
    if (!readBits(scales.proc) || !readBits(scales.disk) || !readBits(p.avnumproc)) return 1;
    std::cin >> p.numproc >> p.numtcpsock >> p.numothersock >> p.numfile >> p.privvmpages >>
        p.lockedpages >> p.shmpages >> p.numflock >> p.numiptent >> p.diskspace >> p.diskinodes >>
        p.quotaugidlimit;
    if (!std::cin) return 1;
    for (const QXL::QXLQoS& qos : hwcalc::resourceRecords(p, scales, pageSize)) {
      std::cout << qos.name << '=';
      if (qos.barrierPresent) std::cout << qos.barrier << ':';
      std::cout << qos.limit << ' ';
    }
    std::cout << '\n';
  }
  return 0;
}
