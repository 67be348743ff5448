import com.quorvane.zul.mediaprocessors.analyzer.*;
import com.quorvane.zul.mediaprocessors.extractor_jni.ImagePixels;
import com.quorvane.zul.mediaprocessors.extractor_results.*;
import java.io.File;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import javax.imageio.ImageIO;

/**
 * The Java API from start to end: faces, classes and skeletons of some photos found by
 * one analyser in one run per photo, kept in a persistent store, printed from the typed
 * answers.
 *
 * <pre>
 * java -jar build/lib/ExtractorSample.jar [--store FILE] [--models DIR] [--framework FILE] PHOTO...
 * </pre>
 *
 * Without options every path is found from this jar's own directory (build/lib): the
 * native library beside it, the models in ../models, the framework configuration in
 * ../share/vqfe/framework.json and the store in ../samples/results.db, so the sample
 * runs from any working directory. A second run is answered from the store.
 */
public final class ExtractorSample {
  public static void main(String[] args) throws Exception {
    Path lib = Paths.get(ExtractorSample.class.getProtectionDomain().getCodeSource().getLocation().toURI()).getParent();
    Path store = lib.resolve("../samples/results.db").normalize();
    Path models = lib.resolve("../models").normalize();
    Path framework = lib.resolve("../share/vqfe/framework.json").normalize();
    List<Path> photos = new ArrayList<>();
    for (int i = 0; i < args.length; i++) {
      switch (args[i]) {
        case "--store": store = Paths.get(args[++i]); break;
        case "--models": models = Paths.get(args[++i]); break;
        case "--framework": framework = Paths.get(args[++i]); break;
        default: photos.add(Paths.get(args[i]));
      }
    }
    if (photos.isEmpty()) {
      System.err.println("usage: ExtractorSample [--store FILE] [--models DIR] [--framework FILE] PHOTO...");
      System.exit(2);
    }
    // Load the native library from beside this jar; without it, -Djava.library.path.
    File jni = lib.resolve(System.mapLibraryName("ExtractorJni")).toFile();
    if (jni.isFile()) System.load(jni.getAbsolutePath());
    Files.createDirectories(store.toAbsolutePath().getParent());

    // A missing model directory or configuration file fails here, naming the path.
    try (Analyzer analyzer = Analyzer.builder().modelDirectory(models.toString())
        .frameworkConfig(framework.toString()).sqliteStore(store.toString()).build()) {
      for (Path photo : photos) {
        // The asset id is the cache key: one id per distinct picture.
        String assetId = photo.toAbsolutePath().normalize().toString();
        Analysis analysis = analyzer.analyze(assetId, ImagePixels.fromBufferedImage(ImageIO.read(photo.toFile())),
            Kind.FACE, Kind.CLASSIFICATION, Kind.SKELETON);
        String name = photo.getFileName().toString();
        System.out.println(name + ": " + analysis.status() + ", answered by " + analysis.source());
        System.out.println(name + " faces: " + faces(analysis.get(Kind.FACE)));
        System.out.println(name + " classes: " + TopClass.shown(analysis.get(Kind.CLASSIFICATION), 3));
        C_SkeletonBuffer skeletons = analysis.get(Kind.SKELETON);
        System.out.println(name + " skeletons: " + (skeletons == null ? "none" : skeletons.getMSkeletonInfosCount() + " person(s)"));
      }
    }
  }

  private static String faces(C_FaceBuffer faces) {
    if (faces == null) return "none";
    StringBuilder out = new StringBuilder(faces.getMFaceBaseInfosCount() + " face(s)");
    for (C_Face106 face : faces.getMFaceBaseInfosList()) {
      // y counts from the bottom of the picture, y_vantor from the top.
      C_Rect r = face.getRect();
      out.append(String.format(" [score %.2f at x %.3f, y_vantor %.3f, %.3f x %.3f, %d points]", face.getScore(),
          r.getX(), r.getYVantor(), r.getWidth(), r.getHeight(), face.getPointsArrayCount()));
    }
    return out.toString();
  }
}
