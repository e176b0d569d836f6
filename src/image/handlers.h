// The built-in format handlers.
//
// How to add a format:
//  1. Write its reader as a SpecifImageIn (derive from ImplGetValeurs<YourReader> and write one member
//     template GetValeursT<D> that hands the native samples to CopierPixels) and its writer as an
//     EcrivainImage (ImplSetValeurs<YourWriter, EcrivainImage>, SetValeursT<S>, Terminer) writing
//     through a FichierAtomique.
//  2. Declare the factories below. A reader factory returns null for a file that is not of its
//     format, judging by the content; a writer factory returns null for an image it cannot write.
//  3. Register them in ListeHandlerRead::InitAll / ListeHandlerWrite::InitAll (imagefic.cpp): the only
//     places that name the built-in factories. Do not use static registrar objects: in a static
//     library an object file holding only a registrar is never linked.
//  4. Add the format to the registry round-trip test.
#pragma once

#include <memory>
#include <string>

#include "zepra/imagefic.h"

std::unique_ptr<SpecifImageIn> CreateReader_TKORTHO(const std::string& nom);
std::unique_ptr<SpecifImageIn> CreateReader_IMG(const std::string& nom);
std::unique_ptr<SpecifImageIn> CreateReader_MOS(const std::string& nom);
std::unique_ptr<SpecifImageIn> CreateReader_PNM(const std::string& nom);
std::unique_ptr<SpecifImageIn> CreateReader_RLE(const std::string& nom);
std::unique_ptr<SpecifImageIn> CreateReader_TIFF(const std::string& nom);
std::unique_ptr<SpecifImageIn> CreateReader_THM(const std::string& nom);

std::unique_ptr<EcrivainImage> CreateWriter_TIFF(const std::string& nom, const ImageInfos& infos);
std::unique_ptr<EcrivainImage> CreateWriter_IMG(const std::string& nom, const ImageInfos& infos);
std::unique_ptr<EcrivainImage> CreateWriter_PNM(const std::string& nom, const ImageInfos& infos);
std::unique_ptr<EcrivainImage> CreateWriter_RLE(const std::string& nom, const ImageInfos& infos);
