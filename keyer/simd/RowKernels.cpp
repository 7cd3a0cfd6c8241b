// SPDX-License-Identifier: BSD-3-Clause
//
// Built once per target: the table of what rows pass through.
#include "keyer/simd/RowChroma.h"
#include "keyer/simd/RowColours.h"
#include "keyer/simd/RowGuide.h"
#include "keyer/simd/RowMattes.h"
#include "keyer/simd/RowSubject.h"
#include "keyer/simd/RowTable.h"
#include "keyer/simd/RowWords.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

extern const RowTable rowKernels;
const RowTable rowKernels = {
    weighRow,
    measureRows,
    turnRow,
    shrinkRow,
    meanAlongRow,
    meanAcrossRows,
    nearerRow,
    wantedOf,
    softOf,
    changesOf,
    wordsOf,
    stretchRow,
    fitChroma,
    leadChroma,
    gatherSubject,
    mixMatte,
    fitMatte,
    followMatte,
    {splitChroma<std::uint8_t>, takeGuide<std::uint8_t>, uncutRow<std::uint8_t>,
     recolourRow<std::uint8_t>, prepareRow<std::uint8_t>, weighColours<std::uint8_t>,
     exchangeRows<std::uint8_t>, slideRow<std::uint8_t>, finishRow<std::uint8_t>},
    {splitChroma<std::uint16_t>, takeGuide<std::uint16_t>, uncutRow<std::uint16_t>,
     recolourRow<std::uint16_t>, prepareRow<std::uint16_t>, weighColours<std::uint16_t>,
     exchangeRows<std::uint16_t>, slideRow<std::uint16_t>, finishRow<std::uint16_t>},
    {splitChroma<float>, takeGuide<float>, uncutRow<float>, recolourRow<float>, prepareRow<float>,
     weighColours<float>, exchangeRows<float>, slideRow<float>, finishRow<float>}};

}  // namespace orvanite::ORVANITE_SIMD_TARGET
