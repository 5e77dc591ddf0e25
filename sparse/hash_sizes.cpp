// SPDX-License-Identifier: LicenseRef-qxkernel
// Sizes of hash tables, for hosts that keep tables of triplets beside a matrix. Assembly itself needs no hash.

#include "llsparse.hpp"

#include <algorithm>
#include <iterator>

namespace {

/// 206 primes, each about a tenth above the one before it.
constexpr unsigned long primes[] = {
    2u, 3u, 5u, 7u, 11u, 13u, 17u, 19u, 23u, 29u, 37u, 43u, 47u, 53u, 59u, 61u, 67u, 71u, 79u, 89u, 97u, 103u, 113u,
    127u, 139u, 149u, 157u, 173u, 191u, 211u, 227u, 251u, 277u, 307u, 331u, 359u, 397u, 433u, 479u, 521u, 571u, 631u,
    691u, 761u, 839u, 929u, 1021u, 1129u, 1249u, 1373u, 1511u, 1669u, 1847u, 2039u, 2251u, 2477u, 2729u, 2999u, 3299u,
    3623u, 3989u, 4391u, 4831u, 5309u, 5839u, 6421u, 7057u, 7759u, 8537u, 9391u, 10333u, 11369u, 12511u, 13759u,
    15137u, 16649u, 18313u, 20149u, 22171u, 24391u, 26839u, 29527u, 32479u, 35729u, 39301u, 43237u, 47563u, 52321u,
    57571u, 63331u, 69661u, 76631u, 84299u, 92717u, 101987u, 112181u, 123397u, 135731u, 149309u, 164239u, 180667u,
    198733u, 218611u, 240479u, 264527u, 290959u, 320041u, 352049u, 387253u, 425977u, 468577u, 515429u, 566971u,
    623671u, 686041u, 754651u, 830131u, 913151u, 1004477u, 1104919u, 1215421u, 1336963u, 1470659u, 1617727u, 1779497u,
    1957453u, 2153201u, 2368511u, 2605363u, 2865899u, 3152489u, 3467729u, 3814501u, 4195951u, 4615549u, 5077099u,
    5584819u, 6143303u, 6757627u, 7433381u, 8176723u, 8994407u, 9893839u, 10883221u, 11971541u, 13168709u, 14485567u,
    15934097u, 17527487u, 19280237u, 21208259u, 23329127u, 25662037u, 28228229u, 31051021u, 34156117u, 37571741u,
    41328913u, 45461803u, 50007961u, 55008773u, 60509653u, 66560639u, 73216697u, 80538371u, 88592201u, 97451441u,
    107196589u, 117916241u, 129707863u, 142678663u, 156946529u, 172641181u, 189905293u, 208895833u, 229785419u,
    252763949u, 278040337u, 305844359u, 336428791u, 370071673u, 407078843u, 447786727u, 492565399u, 541821941u,
    596004127u, 655604539u, 721164991u, 793281499u, 872609653u, 959870621u, 1055857669u, 1161443441u, 1277587771u,
    1405346561u, 1545881203u, 1700469307u, 1870516217u, 2057567843u, 2263324607u, 2489657081u, 2738622797u,
    3012485081u, 3313733573u, 3645106919u, 4009617631u
};
static_assert(std::size(primes) == 206);

} // namespace

unsigned long llsp_hashsize(unsigned long len)
{
    if (len == 0)
        return 0;
    const auto wanted = static_cast<unsigned long>(static_cast<double>(len) * 1.4285714285714286);
    const unsigned long* found = std::lower_bound(primes + 1, std::end(primes), wanted);
    return found == std::end(primes) ? *std::prev(found) : *found;
}

unsigned long llsp_hash2nd(unsigned long size)
{
    constexpr unsigned long cap = 285349621; // 4009617630 + cap is the last sum below 2^32
    return size >= cap + 1 ? cap : size - 2;
}
