import ij.process.AutoThresholder;
import java.util.Scanner;

/** Reads a method's name and 256 counts, again and again, and prints the level that ImageJ finds for each. */
public final class LevelOfHistogram {
  public static void main(String[] arguments) {
    Scanner input = new Scanner(System.in);
    while (input.hasNext()) {
      String method = input.next();
      int[] counts = new int[256];
      for (int i = 0; i < counts.length; i++) counts[i] = input.nextInt();
      System.out.println(new AutoThresholder().getThreshold(method, counts));
    }
  }
}
