// SPDX-License-Identifier: BSD-3-Clause
//
// Samples travel as floats that hold codes exactly; nothing here scales them.
#include "tests/apps/Images.h"

#include <Imath/half.h>

#include <cstdio>
#include <random>
#include <stdexcept>

namespace orvanite::test {
namespace {

template <class Sample>
std::vector<unsigned char> packed(const std::vector<float>& samples) {
  std::vector<unsigned char> bytes(samples.size() * sizeof(Sample));
  auto* to = reinterpret_cast<Sample*>(bytes.data());
  for (std::size_t i = 0; i < samples.size(); ++i) to[i] = static_cast<Sample>(samples[i]);
  return bytes;
}

template <class Sample>
std::vector<float> unpacked(const std::vector<unsigned char>& bytes) {
  const auto* from = reinterpret_cast<const Sample*>(bytes.data());
  return std::vector<float>(from, from + bytes.size() / sizeof(Sample));
}

}  // namespace

Image randomImage(int width, int height, int channels, OIIO::TypeDesc type, unsigned seed) {
  Image image;
  image.spec = OIIO::ImageSpec(width, height, channels, type);
  std::mt19937 random(seed);
  image.samples.resize(static_cast<std::size_t>(width * height * channels));
  const bool real = type.is_floating_point();
  const unsigned top = type == OIIO::TypeDesc::UINT8 ? 256 : 65536;
  for (float& sample : image.samples) {
    // Multiples of 1/1024 up to 1 are halves.
    sample = real ? static_cast<float>(random() % 1025) / 1024 : static_cast<float>(random() % top);
  }
  return image;
}

std::string frameFile(const std::string& name, int frame) {
  char text[16];
  std::snprintf(text, sizeof text, ".%04d.png", frame);
  return name + text;
}

void writeShot(const Folder& folder, const std::string& name, int first, int last, int width,
               int height, int channels, OIIO::TypeDesc type) {
  for (int frame = first; frame <= last; ++frame) {
    write(randomImage(width, height, channels, type, static_cast<unsigned>(frame)),
          folder / frameFile(name, frame));
  }
}

void write(const Image& image, const std::string& path) {
  std::vector<unsigned char> bytes;
  switch (image.spec.format.basetype) {
    case OIIO::TypeDesc::UINT8:
      bytes = packed<std::uint8_t>(image.samples);
      break;
    case OIIO::TypeDesc::UINT16:
      bytes = packed<std::uint16_t>(image.samples);
      break;
    case OIIO::TypeDesc::HALF:
      bytes = packed<half>(image.samples);
      break;
    default:
      bytes = packed<float>(image.samples);
  }
  OIIO::ImageSpec spec = image.spec;
  spec.attribute("oiio:UnassociatedAlpha", 1);
  auto output = OIIO::ImageOutput::create(path);
  if (!output || !output->open(path, spec) || !output->write_image(spec.format, bytes.data()) ||
      !output->close()) {
    throw std::runtime_error("cannot write " + path);
  }
}

Image read(const std::string& path) {
  OIIO::ImageSpec wish;
  wish.attribute("oiio:UnassociatedAlpha", 1);
  auto input = OIIO::ImageInput::open(path, &wish);
  if (!input) throw std::runtime_error("cannot read " + path + ": " + OIIO::geterror());
  Image image;
  image.spec = input->spec();
  std::vector<unsigned char> bytes(image.spec.image_bytes());
  if (!input->read_image(0, 0, 0, image.spec.nchannels, image.spec.format, bytes.data()))
    throw std::runtime_error("cannot read " + path);
  switch (image.spec.format.basetype) {
    case OIIO::TypeDesc::UINT8:
      image.samples = unpacked<std::uint8_t>(bytes);
      break;
    case OIIO::TypeDesc::UINT16:
      image.samples = unpacked<std::uint16_t>(bytes);
      break;
    case OIIO::TypeDesc::HALF:
      image.samples = unpacked<half>(bytes);
      break;
    default:
      image.samples = unpacked<float>(bytes);
  }
  return image;
}

}  // namespace orvanite::test
