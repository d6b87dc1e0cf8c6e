// WebP files: how a picture is encoded follows the JPEG quality setting
// (JpegOptQuality): 100, the application's own, writes lossless WebP, which
// keeps every sample; below that the lossy encoder runs at that quality.
#pragma once
