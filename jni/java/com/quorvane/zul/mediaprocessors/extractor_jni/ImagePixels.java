package com.quorvane.zul.mediaprocessors.extractor_jni;

import java.awt.image.BufferedImage;
import java.math.BigInteger;
import java.nio.ByteBuffer;
import java.util.Objects;

/**
 * Fills {@link ImageBuffer}s from the pixel forms Java code holds: a desktop
 * {@link BufferedImage}, the ARGB {@code int[]} of Android's {@code Bitmap.getPixels},
 * or a {@link ByteBuffer} such as the one {@code Bitmap.copyPixelsToBuffer} fills.
 *
 * <p>The buffer always receives RGBA8888 ({@link VantorPixelFormat#PIXEL_FORMAT_RGBA8888}),
 * rows top to bottom, no padding, with its width, height, format and length set. Pure
 * Java: the jar needs no Android classes. Stateless and safe from any thread; the
 * ImageBuffer itself is used by one thread at a time.
 */
public final class ImagePixels {
  private ImagePixels() {}

  /** Byte order of the four channels of one pixel in a {@link ByteBuffer}. */
  public enum ChannelOrder {
    /** red, green, blue, alpha: Android's {@code ARGB_8888} bitmaps in memory. */
    RGBA(0, 1, 2, 3),
    /** blue, green, red, alpha. */
    BGRA(2, 1, 0, 3),
    /** alpha, red, green, blue. */
    ARGB(1, 2, 3, 0),
    /** alpha, blue, green, red: {@code BufferedImage.TYPE_4BYTE_ABGR} rasters. */
    ABGR(3, 2, 1, 0);

    private final int red;
    private final int green;
    private final int blue;
    private final int alpha;

    ChannelOrder(int red, int green, int blue, int alpha) {
      this.red = red;
      this.green = green;
      this.blue = blue;
      this.alpha = alpha;
    }
  }

  /**
   * Copies a desktop image of any type (its colours as {@link BufferedImage#getRGB}
   * reports them, in the default sRGB space) into a new buffer.
   *
   * @param image the decoded image, for example from {@code ImageIO.read}
   * @return a new RGBA8888 buffer; close it (or hand it to a {@link Resource} and close
   *     that) when done
   * @throws NullPointerException when image is null
   */
  public static ImageBuffer fromBufferedImage(BufferedImage image) {
    Objects.requireNonNull(image, "image is null (ImageIO.read returns null for a file it cannot decode)");
    return filled(imageToRgba(image), image.getWidth(), image.getHeight());
  }

  static byte[] imageToRgba(BufferedImage image) {
    int width = image.getWidth();
    int height = image.getHeight();
    return argbToRgba(image.getRGB(0, 0, width, height, null, 0, width), width, height);
  }

  /**
   * Copies packed ARGB pixels (alpha in the top byte, as {@code Bitmap.getPixels} and
   * {@code BufferedImage.getRGB} return them) into a new buffer.
   *
   * @param argb the pixels, row after row
   * @param width pixels per row, at least 1
   * @param height rows, at least 1
   * @return a new RGBA8888 buffer
   * @throws IllegalArgumentException when the array holds fewer than width x height pixels
   * @throws NullPointerException when argb is null
   */
  public static ImageBuffer fromArgb(int[] argb, int width, int height) {
    Objects.requireNonNull(argb, "argb must not be null");
    return filled(argbToRgba(argb, width, height), width, height);
  }

  static byte[] argbToRgba(int[] argb, int width, int height) {
    int pixels = pixelCount(width, height);
    if (argb.length < pixels) {
      throw new IllegalArgumentException(argb.length + " pixels given for " + width + "x" + height);
    }
    byte[] rgba = new byte[pixels * 4];
    for (int i = 0, o = 0; i < pixels; i++) {
      int p = argb[i];
      rgba[o++] = (byte) (p >> 16);
      rgba[o++] = (byte) (p >> 8);
      rgba[o++] = (byte) p;
      rgba[o++] = (byte) (p >>> 24);
    }
    return rgba;
  }

  /**
   * Copies four-byte pixels from a byte buffer (direct or not) into a new buffer. Reading
   * starts at the buffer's position, which is left unchanged.
   *
   * @param pixels the pixels, rows top to bottom
   * @param width pixels per row, at least 1
   * @param height rows, at least 1
   * @param rowStride bytes from the start of one row to the next, at least width x 4
   *     ({@code Bitmap.getRowBytes()} on Android)
   * @param order the byte order of each pixel's channels
   * @return a new RGBA8888 buffer
   * @throws IllegalArgumentException when the stride is too small or the buffer too short
   * @throws NullPointerException when pixels or order is null
   */
  public static ImageBuffer fromBytes(ByteBuffer pixels, int width, int height, int rowStride, ChannelOrder order) {
    Objects.requireNonNull(pixels, "pixels must not be null");
    Objects.requireNonNull(order, "order must not be null");
    return filled(bytesToRgba(pixels, width, height, rowStride, order), width, height);
  }

  static byte[] bytesToRgba(ByteBuffer pixels, int width, int height, int rowStride, ChannelOrder order) {
    int count = pixelCount(width, height);
    if (rowStride < width * 4) {
      throw new IllegalArgumentException("row stride " + rowStride + " below " + width * 4);
    }
    long needed = (long) rowStride * (height - 1) + width * 4L;
    if (pixels.remaining() < needed) {
      throw new IllegalArgumentException(pixels.remaining() + " bytes given, " + needed + " needed");
    }
    byte[] rgba = new byte[count * 4];
    int start = pixels.position();
    int o = 0;
    for (int y = 0; y < height; y++) {
      for (int x = 0, at = start + y * rowStride; x < width; x++, at += 4) {
        rgba[o++] = pixels.get(at + order.red);
        rgba[o++] = pixels.get(at + order.green);
        rgba[o++] = pixels.get(at + order.blue);
        rgba[o++] = pixels.get(at + order.alpha);
      }
    }
    return rgba;
  }

  private static int pixelCount(int width, int height) {
    if (width < 1 || height < 1 || (long) width * height * 4 > Integer.MAX_VALUE) {
      throw new IllegalArgumentException("unsupported image size " + width + "x" + height);
    }
    return width * height;
  }

  private static ImageBuffer filled(byte[] rgba, int width, int height) {
    ImageBuffer buffer = new ImageBuffer();
    buffer.setWidth(width);
    buffer.setHeight(height);
    buffer.setFormat(VantorPixelFormat.PIXEL_FORMAT_RGBA8888.swigValue());
    buffer.setData(rgba);
    buffer.setLength(BigInteger.valueOf(rgba.length));
    return buffer;
  }
}
