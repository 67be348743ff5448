package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.awt.image.BufferedImage;
import java.math.BigInteger;
import java.nio.ByteBuffer;
import org.junit.jupiter.api.Test;

/** Known pixels through every input form and channel order come out as RGBA8888. */
class ImagePixelsTest {
  // Two rows of two pixels: opaque red, half-transparent green / blue, transparent grey.
  private static final int[] ARGB = {0xFFFF0000, 0x8000FF00, 0xFF0000FF, 0x00808080};
  private static final byte[] RGBA = bytes(
      0xFF, 0, 0, 0xFF, 0, 0xFF, 0, 0x80,
      0, 0, 0xFF, 0xFF, 0x80, 0x80, 0x80, 0);

  private static byte[] bytes(int... values) {
    byte[] out = new byte[values.length];
    for (int i = 0; i < values.length; i++) out[i] = (byte) values[i];
    return out;
  }

  @Test
  void argbArraysAndBufferedImagesOfEveryType() {
    assertArrayEquals(RGBA, ImagePixels.argbToRgba(ARGB, 2, 2));
    BufferedImage image = new BufferedImage(2, 2, BufferedImage.TYPE_4BYTE_ABGR);
    image.setRGB(0, 0, 2, 2, ARGB, 0, 2);
    try (ImageBuffer buffer = ImagePixels.fromBufferedImage(image)) {
      assertEquals(2, buffer.getWidth());
      assertEquals(2, buffer.getHeight());
      assertEquals(BigInteger.valueOf(16), buffer.getLength());
      assertEquals(VantorPixelFormat.PIXEL_FORMAT_RGBA8888.swigValue(), buffer.getFormat());
    }
    // Images without alpha read as opaque.
    byte[] opaque = RGBA.clone();
    for (int i = 3; i < opaque.length; i += 4) opaque[i] = (byte) 0xFF;
    for (int type : new int[] {BufferedImage.TYPE_INT_ARGB, BufferedImage.TYPE_INT_RGB, BufferedImage.TYPE_3BYTE_BGR,
             BufferedImage.TYPE_INT_BGR}) {
      BufferedImage typed = new BufferedImage(2, 2, type);
      typed.setRGB(0, 0, 2, 2, ARGB, 0, 2);
      assertArrayEquals(typed.getColorModel().hasAlpha() ? RGBA : opaque, ImagePixels.imageToRgba(typed), "type " + type);
    }
    assertThrows(IllegalArgumentException.class, () -> ImagePixels.fromArgb(ARGB, 3, 2));
    assertThrows(IllegalArgumentException.class, () -> ImagePixels.fromArgb(ARGB, 0, 2));
    // ImageIO.read gives null for a file it cannot decode: the message says so.
    NullPointerException noImage = assertThrows(NullPointerException.class, () -> ImagePixels.fromBufferedImage(null));
    assertEquals("image is null (ImageIO.read returns null for a file it cannot decode)", noImage.getMessage());
    assertThrows(NullPointerException.class, () -> ImagePixels.fromArgb(null, 1, 1));
  }

  @Test
  void byteBuffersInEveryChannelOrderWithRowPadding() {
    for (ImagePixels.ChannelOrder order : ImagePixels.ChannelOrder.values()) {
      String name = order.name();
      // Rows of 8 pixel bytes padded to 12, after 3 bytes the reader must skip.
      ByteBuffer pixels = ByteBuffer.allocateDirect(3 + 12 + 8);
      pixels.position(3);
      for (int row = 0; row < 2; row++) {
        for (int x = 0; x < 2; x++) {
          int argb = ARGB[row * 2 + x];
          for (int c = 0; c < 4; c++) {
            char channel = name.charAt(c);
            int shift = channel == 'A' ? 24 : channel == 'R' ? 16 : channel == 'G' ? 8 : 0;
            pixels.put(3 + row * 12 + x * 4 + c, (byte) (argb >>> shift));
          }
        }
      }
      assertArrayEquals(RGBA, ImagePixels.bytesToRgba(pixels, 2, 2, 12, order), name);
      assertEquals(3, pixels.position(), "position unchanged");
    }
    ByteBuffer tooShort = ByteBuffer.allocateDirect(15);
    assertThrows(IllegalArgumentException.class,
        () -> ImagePixels.fromBytes(tooShort, 2, 2, 8, ImagePixels.ChannelOrder.RGBA));
    assertThrows(IllegalArgumentException.class,
        () -> ImagePixels.fromBytes(ByteBuffer.allocate(64), 2, 2, 7, ImagePixels.ChannelOrder.RGBA));
  }
}
