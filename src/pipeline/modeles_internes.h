// The factories of the model table's rows (modeles.cpp).
#pragma once

#include <memory>

#include "zepra/pipeline/modeles.h"

std::unique_ptr<ModeleCorrection> CreerModeleAdditif(const ParametresModele&);
std::unique_ptr<ModeleCorrection> CreerModeleMultiplicatif(const ParametresModele&);
